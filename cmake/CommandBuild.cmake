# CLI11 and nlohmann json are header-only, and CLI11 alone takes most of the
# compile time of every command source (some 7 s of CPU for a ten-line
# command): parsed once, as the command's precompiled header.
target_precompile_headers(quillhaven_cli PRIVATE <CLI/CLI.hpp> <nlohmann/json.hpp>)
# ccache reuses objects built with a precompiled header only when it may
# overlook the header's time stamps and predefined macros.
if(QH_CCACHE AND CMAKE_CXX_COMPILER_LAUNCHER STREQUAL QH_CCACHE)
  set_target_properties(quillhaven_cli PROPERTIES CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime;${QH_CCACHE}")
endif()
# The command's sources are compiled as one unit. CLI11 defines its
# validators (ExistingFile, Range, ...) as objects of every source that
# includes it: with a source per command, a process built and destroyed
# some 150 of them, a quarter of a one-file command's instructions. Each
# source keeps its private names in a namespace of its own.
set_target_properties(quillhaven_cli PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
