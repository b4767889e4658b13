# Finds whisper.cpp: the copy the setup script builds into .deps/whisper, else a system install.
# Defines the imported target whisper::whisper.

find_path(WHISPER_INCLUDE_DIR whisper.h
  HINTS ${PROJECT_SOURCE_DIR}/.deps/whisper/include)
find_library(WHISPER_LIBRARY NAMES whisper
  HINTS ${PROJECT_SOURCE_DIR}/.deps/whisper/lib)
find_library(WHISPER_GGML_LIBRARY NAMES ggml
  HINTS ${PROJECT_SOURCE_DIR}/.deps/whisper/lib)
# ggml's tensor types and quantisation (ggml.h) live here; the model generator calls them.
find_library(WHISPER_GGML_BASE_LIBRARY NAMES ggml-base
  HINTS ${PROJECT_SOURCE_DIR}/.deps/whisper/lib)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(whisper REQUIRED_VARS WHISPER_LIBRARY WHISPER_INCLUDE_DIR WHISPER_GGML_LIBRARY
  WHISPER_GGML_BASE_LIBRARY)

if(whisper_FOUND AND NOT TARGET whisper::whisper)
  add_library(whisper::whisper SHARED IMPORTED)
  set_target_properties(whisper::whisper PROPERTIES
    IMPORTED_LOCATION ${WHISPER_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${WHISPER_INCLUDE_DIR}
    INTERFACE_LINK_LIBRARIES "${WHISPER_GGML_LIBRARY};${WHISPER_GGML_BASE_LIBRARY}")
endif()
