# Builds Lumerix.app for macOS (arm64 and x86_64) on Linux, so that a
# contributor without a Mac can build the bundle and inspect what a Mac would
# load: its executables, Info.plist and where the helpers sit.
#
#   MACOS_SDK=/path/to/sdk BUILD_DIR=build-mac bash scripts/build \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/macos-cross.cmake [-DLUMERIX_MEDIAREMOTE_ADAPTER=DIR]
#
# MACOS_SDK is a macOS SDK laid out as Frameworks/, include/ (with c++/v1)
# and lib/ (the layout tools/macos-check takes). Needs clang-19 and lld-19.
#
# This is an inspection build, not one to ship: the SDK has no link stubs
# for libSystem, libc++ and libiconv, and there is no macOS utf8proc or
# uchardet here.
# The executables load libSystem, libc++ and libiconv by their real install
# names (from the export-less stubs written below), and every symbol no SDK
# stub exports is left to -undefined dynamic_lookup: utf8proc's and
# uchardet's included, which a Mac build links statically (Homebrew's
# libutf8proc.a and libuchardet.a). Nothing here is signed: codesign does
# not run on Linux.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)

# Read again inside every try_compile, where only the environment carries
# what the first pass worked out.
if(NOT DEFINED ENV{MACOS_SDK} OR NOT IS_DIRECTORY "$ENV{MACOS_SDK}/Frameworks")
  message(FATAL_ERROR "macos-cross: set MACOS_SDK to a macOS SDK directory (with Frameworks/, include/, lib/)")
endif()
set(sdk "$ENV{MACOS_SDK}")
find_program(LUMERIX_MAC_CLANG NAMES clang++-19 clang++ REQUIRED)
find_program(LUMERIX_MAC_LD NAMES ld64.lld-19 ld64.lld PATHS /usr/lib/llvm-19/bin REQUIRED)
find_program(LUMERIX_MAC_LIPO NAMES llvm-lipo-19 llvm-lipo PATHS /usr/lib/llvm-19/bin REQUIRED)
find_program(LUMERIX_MAC_LIBTOOL NAMES llvm-libtool-darwin-19 llvm-libtool-darwin PATHS /usr/lib/llvm-19/bin REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool-19 llvm-install-name-tool
             PATHS /usr/lib/llvm-19/bin REQUIRED)

get_property(in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(in_try_compile)
  set(root "$ENV{LUMERIX_MACOS_ROOT}")
else()
  # The sysroot clang and ld64.lld expect, pointing into the SDK, plus the
  # stubs and the tools (lipo merges the architectures) the SDK lacks.
  set(root "${CMAKE_BINARY_DIR}/macos-root")
  file(REMOVE_RECURSE "${root}")
  file(MAKE_DIRECTORY "${root}/usr/lib" "${root}/System/Library" "${root}/bin" "${root}/deps/include")
  file(CREATE_LINK "${sdk}/include" "${root}/usr/include" SYMBOLIC)
  file(CREATE_LINK "${sdk}/Frameworks" "${root}/System/Library/Frameworks" SYMBOLIC)
  # The SDK version the executables record (AppKit keeps older behaviours
  # for apps built against older SDKs); from the headers when the SDK has no
  # settings file.
  if(EXISTS "${sdk}/SDKSettings.json")
    file(CREATE_LINK "${sdk}/SDKSettings.json" "${root}/SDKSettings.json" SYMBOLIC)
  else()
    file(STRINGS "${sdk}/include/AvailabilityInternal.h" sdk_version
         REGEX "define __MAC_OS_X_VERSION_MAX_ALLOWED __MAC_[0-9_]+")
    string(REGEX REPLACE ".*__MAC_([0-9_]+).*" "\\1" sdk_version "${sdk_version}")
    string(REPLACE "_" "." sdk_version "${sdk_version}")
    if(sdk_version)
      file(WRITE "${root}/SDKSettings.json" "{\"CanonicalName\": \"macosx${sdk_version}\", \"Version\": \"${sdk_version}\", \"MaximumDeploymentTarget\": \"${sdk_version}.99\"}\n")
    endif()
  endif()
  file(GLOB sdk_libs "${sdk}/lib/*")
  foreach(lib ${sdk_libs})
    get_filename_component(name "${lib}" NAME)
    file(CREATE_LINK "${lib}" "${root}/usr/lib/${name}" SYMBOLIC)
  endforeach()
  foreach(stub "libSystem|/usr/lib/libSystem.B.dylib" "libc++|/usr/lib/libc++.1.dylib"
               "libiconv|/usr/lib/libiconv.2.dylib")
    string(REPLACE "|" ";" stub "${stub}")
    list(GET stub 0 name)
    list(GET stub 1 install_name)
    file(WRITE "${root}/usr/lib/${name}.tbd"
      "--- !tapi-tbd\ntbd-version: 4\ntargets: [ x86_64-macos, arm64-macos ]\n"
      "install-name: '${install_name}'\n...\n")
  endforeach()
  file(CREATE_LINK "${LUMERIX_MAC_LIPO}" "${root}/bin/lipo" SYMBOLIC)

  # Header-only and header parts of the host's libraries, and only those:
  # the host's include folder itself must not reach a macOS compile.
  file(COPY /usr/include/nlohmann /usr/include/utf8proc.h /usr/include/uchardet DESTINATION "${root}/deps/include")
  file(GLOB_RECURSE json_headers /usr/include/nlohmann/*.hpp)
  set(json_version "")
  foreach(part MAJOR MINOR PATCH)
    foreach(header ${json_headers})
      file(STRINGS "${header}" line REGEX "^#define NLOHMANN_JSON_VERSION_${part} +[0-9]+")
      if(line)
        string(REGEX MATCH "[0-9]+" number "${line}")
        string(APPEND json_version "${number}.")
        break()
      endif()
    endforeach()
  endforeach()
  string(REGEX REPLACE "\\.$" "" json_version "${json_version}")
  file(WRITE "${root}/deps/nlohmann_json/nlohmann_jsonConfig.cmake"
    "if(NOT TARGET nlohmann_json::nlohmann_json)\n"
    "  add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)\n"
    "  set_target_properties(nlohmann_json::nlohmann_json PROPERTIES INTERFACE_INCLUDE_DIRECTORIES \"${root}/deps/include\")\n"
    "endif()\n")
  file(WRITE "${root}/deps/nlohmann_json/nlohmann_jsonConfigVersion.cmake"
    "set(PACKAGE_VERSION ${json_version})\n"
    "if(PACKAGE_FIND_VERSION VERSION_GREATER PACKAGE_VERSION)\n  set(PACKAGE_VERSION_COMPATIBLE FALSE)\n"
    "else()\n  set(PACKAGE_VERSION_COMPATIBLE TRUE)\nendif()\n")
  # Objects hold both architectures; GNU ar cannot index them, Apple's
  # libtool (here LLVM's) makes the universal archive ld64 reads.
  file(WRITE "${root}/rules.cmake"
    "set(CMAKE_CXX_CREATE_STATIC_LIBRARY \"${LUMERIX_MAC_LIBTOOL} -static -o <TARGET> <OBJECTS>\")\n"
    "set(CMAKE_OBJCXX_CREATE_STATIC_LIBRARY \"${LUMERIX_MAC_LIBTOOL} -static -o <TARGET> <OBJECTS>\")\n")
  set(ENV{LUMERIX_MACOS_ROOT} "${root}")
endif()

set(CMAKE_CXX_COMPILER "${LUMERIX_MAC_CLANG}")
set(CMAKE_OBJCXX_COMPILER "${LUMERIX_MAC_CLANG}")
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-macos12.0)
set(CMAKE_OBJCXX_COMPILER_TARGET arm64-apple-macos12.0)
set(CMAKE_OSX_SYSROOT "${root}")
set(CMAKE_USER_MAKE_RULES_OVERRIDE "${root}/rules.cmake")
set(CMAKE_OSX_ARCHITECTURES "arm64;x86_64" CACHE STRING "")

# The SDK's libc++ headers only (a host libc++ would not match macOS).
set(cxx_flags "-stdlib=libc++ -nostdinc++ -isystem ${root}/usr/include/c++/v1 -B${root}/bin")
set(CMAKE_CXX_FLAGS_INIT "${cxx_flags}")
set(CMAKE_OBJCXX_FLAGS_INIT "${cxx_flags}")
# ld64.lld takes the newer ld64 arguments, which clang passes only to a linker
# it knows to be new enough.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "--ld-path=${LUMERIX_MAC_LD} -mlinker-version=711 -B${root}/bin -Wl,-undefined,dynamic_lookup")
endforeach()

set(CMAKE_FIND_ROOT_PATH "${root}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# What find_* cannot find in an SDK: set here, once.
set(nlohmann_json_DIR "${root}/deps/nlohmann_json" CACHE PATH "")
set(UTF8PROC_INCLUDE_DIR "${root}/deps/include" CACHE PATH "")
set(UTF8PROC_LIBRARY "-Wl,-undefined,dynamic_lookup" CACHE STRING "")
set(UCHARDET_INCLUDE_DIR "${root}/deps/include" CACHE PATH "")
set(UCHARDET_LIBRARY "-Wl,-undefined,dynamic_lookup" CACHE STRING "")
set(Iconv_IS_BUILT_IN FALSE CACHE BOOL "")
set(Iconv_INCLUDE_DIR "${root}/usr/include" CACHE PATH "")
set(Iconv_LIBRARY "${root}/usr/lib/libiconv.tbd" CACHE FILEPATH "")

# The app and its command line; the tests need a Mac (or GoogleTest for one).
set(LUMERIX_TESTS OFF CACHE BOOL "Build the test suites")
