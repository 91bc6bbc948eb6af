# Shared by every target of this project: warnings, sanitizers, linking, what users get, and the registration of tests.

option(CORVANE_WERROR "Treat warnings as errors" ON)
option(CORVANE_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(CORVANE_TESTS "Build the tests and the benchmarks, which need GoogleTest" ON)
option(CORVANE_FUZZ "Build the fuzz targets (clang)" OFF)

add_library(corvane_options INTERFACE)
target_include_directories(corvane_options INTERFACE "${PROJECT_SOURCE_DIR}")
if(MSVC)
  target_compile_options(corvane_options INTERFACE
    /W4 /permissive- /utf-8 $<$<BOOL:${CORVANE_WERROR}>:/WX>)
  target_compile_definitions(corvane_options INTERFACE _CRT_SECURE_NO_WARNINGS)
else()
  target_compile_options(corvane_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${CORVANE_WERROR}>:-Werror>)
endif()
if(CORVANE_SANITIZE OR CORVANE_FUZZ)
  set(sanitizers address,undefined)
  if(CORVANE_FUZZ)
    string(APPEND sanitizers ",fuzzer-no-link")
  endif()
  target_compile_options(corvane_options INTERFACE
    -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(corvane_options INTERFACE -fsanitize=${sanitizers})
endif()
if(WIN32)
  target_compile_definitions(corvane_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN WINVER=0x0A00 _WIN32_WINNT=0x0A00)
  if(MINGW)
    # A file is the same wherever and whenever it is built, and its symbols lead from an address to a line.
    target_compile_options(corvane_options INTERFACE
      $<$<CONFIG:Release>:-g1> "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=/corvane")
    target_link_options(corvane_options INTERFACE -static -Wl,--no-insert-timestamp)
  endif()
endif()

# CMake's own module finds Debian's Boost and the target's alike. The packages that Boost installs ask for one
# another so often that a configuration would take a minute.
set(Boost_NO_BOOST_CMAKE ON)
set(Boost_NO_WARN_NEW_VERSIONS ON)
set(boost_compiled filesystem)
if(WIN32)
  set(Boost_USE_STATIC_LIBS ON)
  list(APPEND boost_compiled thread)
endif()
find_package(Boost 1.81 REQUIRED COMPONENTS ${boost_compiled})
if(WIN32)
  target_link_libraries(Boost::filesystem INTERFACE bcrypt)
endif()
if(MINGW)
  target_compile_options(corvane_options INTERFACE "-ffile-prefix-map=${Boost_INCLUDE_DIRS}=/boost")
endif()
foreach(library property_tree algorithm)
  add_library(Boost::${library} ALIAS Boost::headers)
endforeach()

# corvane_library(NAME [PURE source...] [WINDOWS source...] [LINK library...])
function(corvane_library name)
  cmake_parse_arguments(arg "" "" "PURE;WINDOWS;LINK" ${ARGN})
  set(sources ${arg_PURE})
  if(WIN32)
    list(APPEND sources ${arg_WINDOWS})
  endif()
  if(NOT sources)
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_link_libraries(${name} PUBLIC corvane_options ${arg_LINK})
endfunction()

# corvane_shipped(TARGET DESCRIPTION): a file that users get: it says its version, and its symbols are in TARGET.debug
# beside it, which it names for a debugger.
function(corvane_shipped target description)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    set(file_type VFT_APP)
    set(suffix .exe)
  else()
    set(file_type VFT_DLL)
    set(suffix .dll)
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" ${target}_version.rc @ONLY)
  target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
  if(MINGW)
    set(file "$<TARGET_FILE:${target}>")
    # It writes the time of its own work into an image.
    set(objcopy "${CMAKE_COMMAND}" -E env SOURCE_DATE_EPOCH=0 "${CMAKE_OBJCOPY}")
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${objcopy} --only-keep-debug "${file}" "${file}.debug"
      COMMAND ${objcopy} --strip-all "--add-gnu-debuglink=${file}.debug" "${file}"
      BYPRODUCTS "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}${suffix}.debug"
      VERBATIM)
  endif()
endfunction()

# corvane_test(NAME LABEL [PROGRAM program] [FILTER pattern] [TIMEOUT seconds] [ENVIRONMENT variable...]): registers
# a GoogleTest program, called NAME unless told otherwise, or those of its tests whose names match; the report is
# reports/NAME.xml.
function(corvane_test name label)
  cmake_parse_arguments(arg "" "PROGRAM;FILTER;TIMEOUT" "ENVIRONMENT" ${ARGN})
  if(NOT arg_PROGRAM)
    set(arg_PROGRAM ${name})
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 1800)
  endif()
  if(arg_FILTER)
    list(APPEND arg_ENVIRONMENT "GTEST_FILTER=${arg_FILTER}")
  endif()
  add_test(NAME ${name} COMMAND ${arg_PROGRAM} WORKING_DIRECTORY "${CMAKE_BINARY_DIR}")
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "GTEST_OUTPUT=xml:reports/${name}.xml;${arg_ENVIRONMENT}")
endfunction()

# corvane_test_profiler(NAME source... [LINK library...]): a library that a runtime loads as its profiler.
function(corvane_test_profiler name)
  corvane_profiler_library(${name} "${PROJECT_SOURCE_DIR}/tests/support/test_profiler.cpp" ${ARGN})
endfunction()

# corvane_between_profiler(NAME source... [LINK library...]): one that stands between the runtime and the
# profiler under test.
function(corvane_between_profiler name)
  corvane_profiler_library(${name} "${PROJECT_SOURCE_DIR}/tests/support/between.cpp" ${ARGN})
endfunction()

function(corvane_profiler_library name)
  cmake_parse_arguments(arg "" "" "LINK" ${ARGN})
  add_library(${name} SHARED EXCLUDE_FROM_ALL ${arg_UNPARSED_ARGUMENTS}
    "${PROJECT_SOURCE_DIR}/tests/support/test_profiler.def")
  target_link_libraries(${name} PRIVATE corvane_options uuid ${arg_LINK})
  set_target_properties(${name} PROPERTIES PREFIX "")
endfunction()

# corvane_dotnet_program(NAME DIRECTORY [PROJECT project] [ASSEMBLY assembly] [PROPERTIES property...]
# [DEPENDS file...] [PUBLISH property...]): builds the C# project DIRECTORY/NAME.csproj into managed/NAME of the build
# directory, with these properties, by the target managed_NAME, which whoever runs it depends on; or publishes it.
# Project and assembly are called NAME unless told otherwise. No build server is left running.
function(corvane_dotnet_program name directory)
  cmake_parse_arguments(arg "" "PROJECT;ASSEMBLY" "DEPENDS;PROPERTIES;PUBLISH" ${ARGN})
  if(NOT arg_PROJECT)
    set(arg_PROJECT ${name})
  endif()
  if(NOT arg_ASSEMBLY)
    set(arg_ASSEMBLY ${arg_PROJECT})
  endif()
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${directory}/*.cs" "${directory}/*.csproj")
  set(output "${CMAKE_BINARY_DIR}/managed/${name}")
  set(assembly "${output}/${arg_ASSEMBLY}.dll")
  if(arg_ASSEMBLY MATCHES "\\.exe$") # of the .NET Framework
    set(assembly "${output}/${arg_ASSEMBLY}")
  endif()
  set(command build)
  list(TRANSFORM arg_PROPERTIES PREPEND "-p:")
  if(arg_PUBLISH)
    set(command publish)
    list(TRANSFORM arg_PUBLISH PREPEND "-p:")
    # What is published into a single file is the program itself.
    if("${arg_PUBLISH}" MATCHES "Publication=SingleFile")
      set(assembly "${output}/${arg_ASSEMBLY}.exe")
    endif()
  endif()
  add_custom_command(
    OUTPUT "${assembly}"
    COMMAND dotnet ${command} "${directory}/${arg_PROJECT}.csproj" --configuration Release --output "${output}"
            ${arg_PROPERTIES} ${arg_PUBLISH} --nologo --verbosity quiet -nodeReuse:false
            -p:UseSharedCompilation=false --artifacts-path "${CMAKE_BINARY_DIR}/managed/obj/${name}"
    # An output that was up to date is not written again.
    COMMAND "${CMAKE_COMMAND}" -E touch "${assembly}"
    DEPENDS ${sources} ${arg_DEPENDS} "${PROJECT_SOURCE_DIR}/Directory.Build.props" "${PROJECT_SOURCE_DIR}/version.txt"
    COMMENT "Building the C# project ${arg_PROJECT}"
    VERBATIM)
  add_custom_target(managed_${name} DEPENDS "${assembly}")
endfunction()

# corvane_dotnet_test(NAME LABEL ASSEMBLY): registers an xunit assembly; its report is reports/NAME.xml.
function(corvane_dotnet_test name label assembly)
  add_test(NAME ${name} WORKING_DIRECTORY "${CMAKE_BINARY_DIR}"
    COMMAND dotnet vstest "${assembly}" --logger:trx$<SEMICOLON>LogFileName=${name}.xml
            --ResultsDirectory:reports)
  # They measure time as well.
  set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 1800 RUN_SERIAL ON)
endfunction()
