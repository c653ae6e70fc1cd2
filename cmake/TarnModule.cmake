# Functions that make the library's targets, so that each target has the same flags and install rules.
include_guard()
include(CMakePackageConfigHelpers)

if(TARN_SANITIZE STREQUAL "thread")
  # GCC 12's runtime finds no room for its shadow memory on kernels that randomise addresses widely.
  execute_process(COMMAND setarch -R true RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(NOT failed)
    set(CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
  endif()
endif()

# Warnings and sanitizers of everything this project builds itself.
function(tarn_build_flags target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wshadow -Wthread-safety $<$<BOOL:${TARN_WERROR}>:-Werror>)
  else()
    # GCC's whole -Wshadow objects to a constructor's parameter that bears the name of a member function or field. At
    # -O3, GCC 12 takes `"a" + string` for a copy of overlapping bytes (GCC bug 105651).
    target_compile_options(${target} PRIVATE -Wshadow=local -Wno-restrict)
    if(TARN_WERROR AND NOT TARN_SANITIZE)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
  if(TARN_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${TARN_SANITIZE} -fno-omit-frame-pointer
      -fno-sanitize-recover=all)
    target_compile_definitions(${target} PRIVATE TARN_SANITIZED)
    # Between the sanitizers' checks, GCC 12 loses sight of which alternative of an optional or variant is engaged and
    # how long a string is, at times depending on the length of a path. The other builds treat warnings as errors.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-array-bounds;-Wno-stringop-overflow>)
    target_link_options(${target} PRIVATE -fsanitize=${TARN_SANITIZE})
  endif()
endfunction()

# tarn_public_headers(NAME VARIABLE): the headers under Sources/NAME that users may include. The folders Curl and Detail
# are private.
function(tarn_public_headers name variable)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/Sources/${name}/*.hpp")
  list(FILTER headers EXCLUDE REGEX "/(Curl|Detail)/")
  set(${variable} ${headers} PARENT_SCOPE)
endfunction()

# tarn_add_module(NAME [PUBLIC target...] [PRIVATE target...]): the library of all sources under Sources/NAME.
function(tarn_add_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "PUBLIC;PRIVATE")
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/Sources/${name}/*.cpp")
  tarn_public_headers(${name} headers)
  add_library(${name} ${sources})
  add_library(TarnService::${name} ALIAS ${name})
  tarn_build_flags(${name})
  # Position-independent code of GCC otherwise calls each function of its own as one that a program might replace.
  target_compile_options(${name} PRIVATE -fno-semantic-interposition)
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/Sources" FILES ${headers})
  target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
  if(BUILD_SHARED_LIBS)
    # Threads of the queues may still run when an application unloads its plug-in.
    target_link_options(${name} PRIVATE -Wl,-z,nodelete)
  endif()
  # The names of the inner modules are too general for a system's library folder.
  set(output Tarn${name})
  string(REGEX REPLACE "^TarnTarn" "Tarn" output ${output})
  # LINKER_LANGUAGE: a module may consist of headers alone.
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output} POSITION_INDEPENDENT_CODE ON LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS ${name} EXPORT TarnServiceTargets
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tarnservice")
endfunction()

# The package that find_package(TarnService CONFIG) finds.
function(tarn_install_package)
  set(destination "${CMAKE_INSTALL_LIBDIR}/cmake/TarnService")
  configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/TarnServiceConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/TarnServiceConfig.cmake" INSTALL_DESTINATION "${destination}")
  write_basic_package_version_file("${PROJECT_BINARY_DIR}/TarnServiceConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
  install(FILES "${PROJECT_BINARY_DIR}/TarnServiceConfig.cmake"
    "${PROJECT_BINARY_DIR}/TarnServiceConfigVersion.cmake" DESTINATION "${destination}")
  install(EXPORT TarnServiceTargets NAMESPACE TarnService:: DESTINATION "${destination}")
endfunction()
