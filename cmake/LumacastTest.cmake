include(GoogleTest)

# lumacast_sanitizer_runtime(VAR): the full path of this build's sanitizer runtime library
# (libasan.so or libtsan.so), or "" in a build without one. A program that preloads
# something into a sanitized process must put this first in LD_PRELOAD.
function(lumacast_sanitizer_runtime var)
    set(_runtime "")
    if(LUMACAST_SANITIZE MATCHES "address")
        set(_runtime libasan.so)
    elseif(LUMACAST_SANITIZE MATCHES "thread")
        set(_runtime libtsan.so)
    endif()
    set(_path "")
    if(_runtime)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${_runtime}
                        OUTPUT_VARIABLE _path OUTPUT_STRIP_TRAILING_WHITESPACE)
    endif()
    set(${var} "${_path}" PARENT_SCOPE)
endfunction()

# lumacast_add_test(NAME SOURCES a.cpp b.cpp LIBS x y [NAMESPACE] [TIMEOUT s] [LABELS l])
# NAMESPACE: the binary re-executes itself inside a private user+mount+network namespace
# (tests/support/NamespaceMain.cpp), so it may build a fake device without touching the host.
function(lumacast_add_test name)
    cmake_parse_arguments(T "NAMESPACE" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock Threads::Threads)
    if(T_NAMESPACE)
        target_link_libraries(${name} PRIVATE lumacast_test_nsmain)
    else()
        target_link_libraries(${name} PRIVATE lumacast_test_main)
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    if(T_NAMESPACE AND LUMACAST_NAMESPACE_EMULATOR)
        # Under an emulator the namespace has to be made outside it (see the toolchain).
        set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR
                "${LUMACAST_NAMESPACE_EMULATOR}")
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT} SKIP_RETURN_CODE 77
            LABELS "${T_LABELS}")
    if(CMAKE_CROSSCOMPILING_EMULATOR)
        # Programs a test starts itself must go through the emulator too (no binfmt here).
        list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " _emulator)
        set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT "LUMACAST_TEST_EMULATOR=${_emulator}")
    endif()
endfunction()
