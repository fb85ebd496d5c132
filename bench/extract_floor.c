/* The least any extractor can do per TNEF file on this machine: start a
 * static process, read the input file, and create and write the files that
 * `quillhaven attachments` writes for it (the same names and sizes, listed
 * in PLAN as its "<size>\t<name>" lines; O_CREAT | O_EXCL, one write each),
 * printing one line per file. No parsing of the input at all.
 * tnef_vs_tnef.sh times it beside both extractors.
 * Usage: extract_floor DIR INPUT PLAN */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static unsigned char* readAll(const char* path, size_t* size) {
    int in = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (in < 0 || fstat(in, &status) != 0) return NULL;
    *size = (size_t)status.st_size;
    unsigned char* data = malloc(*size + 1);
    if (!data || read(in, data, *size) != (ssize_t)*size) return NULL;
    close(in);
    data[*size] = 0;
    return data;
}

int main(int argc, char** argv) {
    size_t size = 0, planSize = 0;
    if (argc != 4) return 2;
    unsigned char* data = readAll(argv[2], &size);
    char* plan = (char*)readAll(argv[3], &planSize);
    if (!data || !plan) return 2;
    char path[8192], line[8192];
    for (char* entry = strtok(plan, "\n"); entry; entry = strtok(NULL, "\n")) {
        char* tab = strchr(entry, '\t');
        if (!tab) continue;
        size_t length = strtoull(entry, NULL, 10);
        snprintf(path, sizeof path, "%s/%s", argv[1], tab + 1);
        int out = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (out < 0) return 2;
        /* The input's bytes stand in for the attachment's when it has enough. */
        const unsigned char* bytes = length <= size ? data : calloc(length, 1);
        if (!bytes || (length && write(out, bytes, length) != (ssize_t)length)) return 2;
        close(out);
        int n = snprintf(line, sizeof line, "%zu\t%s\n", length, tab + 1);
        if (write(1, line, (size_t)n) != n) return 2;
    }
    return 0;
}
