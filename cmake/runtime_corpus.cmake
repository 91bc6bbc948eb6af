# The content of the assemblies of the newest runtime, as other readers see it. It is written at build time into
# runtime_corpus/ of the build directory. Tests and benchmarks compare with it.
#   signatures.txt  every signature, by System.Reflection.Metadata
#   bodies.bin      the bytes of every method body
#   opcodes.txt     System.Reflection.Emit's opcodes
#   cecil.txt       Mono.Cecil's reading of the bodies of six assemblies

file(GLOB CORVANE_RUNTIME_FOLDER "$ENV{CORVANE_DOTNET_ROOTS}/10/shared/Microsoft.NETCore.App/*")
set(CORVANE_RUNTIME_CORPUS "${CMAKE_BINARY_DIR}/runtime_corpus")
set(CORVANE_SIG_READER "${PROJECT_SOURCE_DIR}/tests/tools/sig_reader.cs")
set(CORVANE_IL_READER "${PROJECT_SOURCE_DIR}/tests/tools/il_reader.cs")

if(WIN32 AND NOT CORVANE_RUNTIME_FOLDER)
  message(FATAL_ERROR "CORVANE_DOTNET_ROOTS names no folder with a .NET 10 runtime, which the tests of the "
                      "Windows build need. ./dev sets it up; by hand: eval \"$(./dev env)\"")
endif()
if(CORVANE_RUNTIME_FOLDER)
  set(signatures "${CORVANE_RUNTIME_CORPUS}/signatures.txt")
  set(bodies "${CORVANE_RUNTIME_CORPUS}/bodies.bin")
  set(opcodes "${CORVANE_RUNTIME_CORPUS}/opcodes.txt")
  set(cecil "${CORVANE_RUNTIME_CORPUS}/cecil.txt")
  file(MAKE_DIRECTORY "${CORVANE_RUNTIME_CORPUS}")
  add_custom_command(OUTPUT "${signatures}"
    COMMAND dotnet run -c Release "${CORVANE_SIG_READER}" --
            "${CORVANE_RUNTIME_FOLDER}" "${signatures}"
    DEPENDS "${CORVANE_SIG_READER}"
    COMMENT "Listing the signatures of the .NET runtime"
    VERBATIM)
  set(il_reader dotnet run -c Release "${CORVANE_IL_READER}" --)
  add_custom_command(OUTPUT "${opcodes}" "${bodies}" "${cecil}"
    COMMAND ${il_reader} opcodes "${opcodes}"
    COMMAND ${il_reader} bodies "${CORVANE_RUNTIME_FOLDER}" "${bodies}"
    COMMAND ${il_reader} cecil "${CORVANE_RUNTIME_FOLDER}" "${cecil}"
            System.Private.CoreLib System.Private.Xml System.Private.DataContractSerialization
            System.Linq.Expressions System.Net.Http Microsoft.VisualBasic.Core
    DEPENDS "${CORVANE_IL_READER}"
    COMMENT "Extracting the method bodies of the .NET runtime"
    VERBATIM)
  add_custom_target(runtime_signatures DEPENDS "${signatures}")
  # One after the other: both are started by the same command of the SDK.
  add_custom_target(runtime_bodies DEPENDS "${opcodes}" "${bodies}" "${cecil}")
  add_dependencies(runtime_bodies runtime_signatures)
endif()
