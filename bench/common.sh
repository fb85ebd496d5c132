# Shared set-up of the whole-process benchmark scripts; sourced, not run.
# Sets root, qh (the quillhaven under test: $1 or build/quillhaven), corpus
# ($QH_CORPUS or ../shared/corpus) and work (a temporary folder removed on exit),
# and defines children_cpu.
root="$(cd "$(dirname "$0")/.." && pwd)"
qh="${1:-$root/build/quillhaven}"
corpus="${QH_CORPUS:-$root/../shared/corpus}"
[ -x "$qh" ] || { echo "no quillhaven at $qh: build it, or pass its path" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# CPU seconds (user + system) used so far by this script's finished children,
# into $cpu (`times` runs in this shell: a subshell would count only its own).
children_cpu() {
  times >"$work/times"
  cpu=$(awk 'END { n = 0; for (i = 1; i <= 2; i++) { split($i, p, /[ms]/); n += p[1] * 60 + p[2] } print n }' "$work/times")
}
