# The preview plug-in as a Quick Look generator bundle (macOS). The plug-in's
# own sources (not its host shim) are built against the real frameworks; the
# factory UUID and the two accepted content types come from PluginIDs.h so the
# bundle's description cannot drift from the code.

find_library(QH_COREFOUNDATION_FRAMEWORK CoreFoundation REQUIRED)
find_library(QH_CORESERVICES_FRAMEWORK CoreServices REQUIRED)
find_library(QH_QUICKLOOK_FRAMEWORK QuickLook REQUIRED)

set(QH_PLUGIN_IDS_HEADER ${PROJECT_SOURCE_DIR}/src/plugin/PluginIDs.h)
file(STRINGS ${QH_PLUGIN_IDS_HEADER} QH_FACTORY_LINE REGEX "^#define QH_PLUGIN_FACTORY_UUID ")
string(REGEX REPLACE ".*\"([0-9A-Fa-f-]+)\".*" "\\1" QH_PLUGIN_FACTORY_UUID "${QH_FACTORY_LINE}")
file(STRINGS ${QH_PLUGIN_IDS_HEADER} QH_MSG_TYPE_LINE REGEX "^#define QH_MSG_CONTENT_TYPE ")
string(REGEX REPLACE ".*\"([^\"]+)\".*" "\\1" QH_MSG_CONTENT_TYPE "${QH_MSG_TYPE_LINE}")
file(STRINGS ${QH_PLUGIN_IDS_HEADER} QH_LITE_TYPE_LINE REGEX "^#define QH_LITE_MSG_CONTENT_TYPE ")
string(REGEX REPLACE ".*\"([^\"]+)\".*" "\\1" QH_LITE_MSG_CONTENT_TYPE "${QH_LITE_TYPE_LINE}")
if(NOT QH_PLUGIN_FACTORY_UUID MATCHES "^[0-9A-Fa-f-]+$")
  message(FATAL_ERROR "No factory UUID found in ${QH_PLUGIN_IDS_HEADER}")
endif()

# Only the top folder: src/plugin/shim is the stand-in for these frameworks.
file(GLOB QH_PLUGIN_BUNDLE_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/plugin/*.cpp)

add_library(quillhaven_qlgenerator MODULE ${QH_PLUGIN_BUNDLE_SOURCES})
target_compile_definitions(quillhaven_qlgenerator PRIVATE QH_PLUGIN_HOST_FRAMEWORKS=1)
target_link_libraries(quillhaven_qlgenerator PRIVATE
  quillhaven_compound quillhaven_richtext
  ${QH_COREFOUNDATION_FRAMEWORK} ${QH_CORESERVICES_FRAMEWORK} ${QH_QUICKLOOK_FRAMEWORK})

set(QH_BUNDLE_IDENTIFIER "com.quillhaven.qlgenerator")
set(QH_BUNDLE_VERSION "${PROJECT_VERSION}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/Info.plist.in ${PROJECT_BINARY_DIR}/qlgenerator/Info.plist @ONLY)

set_target_properties(quillhaven_qlgenerator PROPERTIES
  BUNDLE TRUE
  BUNDLE_EXTENSION qlgenerator
  OUTPUT_NAME Quillhaven
  MACOSX_BUNDLE_INFO_PLIST ${PROJECT_BINARY_DIR}/qlgenerator/Info.plist)

install(TARGETS quillhaven_qlgenerator LIBRARY DESTINATION Library/QuickLook)
