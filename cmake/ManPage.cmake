# Writes the manual page from the command's own help texts, so that it never
# falls behind them: cmake -DCLI=<quillhaven> -DTEMPLATE=<quillhaven.1.in>
#   -DOUTPUT=<quillhaven.1> -DVERSION=<x.y.z> -P ManPage.cmake
# Each command's --help goes in as it is, preformatted.

function(roff_escape text out)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  # A line starting with "." or "'" would be read as a request.
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

function(help_of out)
  execute_process(COMMAND ${CLI} ${ARGN} --help OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${CLI} ${ARGN} --help failed: ${status}")
  endif()
  # The usage line names the program as it was started.
  string(REGEX REPLACE "Usage: [^ \n]*quillhaven" "Usage: quillhaven" text "${text}")
  string(STRIP "${text}" text)
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

help_of(top)
string(REGEX MATCH "Subcommands:\n.*" listing "${top}")
string(REGEX MATCHALL "\n  [a-z][a-z-]*[ \t]" names "${listing}")
set(commands "")
string(APPEND commands ".SS \"Global options\"\n.nf\n")
string(REGEX MATCH "Options:\n[^\n]*(\n  [^\n]+)*" globals "${top}")
roff_escape("${globals}" globals)
string(APPEND commands "${globals}\n.fi\n")
foreach(name IN LISTS names)
  string(STRIP "${name}" name)
  help_of(help ${name})
  roff_escape("${help}" help)
  string(APPEND commands ".SS ${name}\n.nf\n${help}\n.fi\n")
endforeach()

file(READ ${TEMPLATE} page)
string(REPLACE "@COMMANDS@" "${commands}" page "${page}")
string(REPLACE "@VERSION@" "${VERSION}" page "${page}")
file(WRITE ${OUTPUT}.tmp "${page}")
file(RENAME ${OUTPUT}.tmp ${OUTPUT})
