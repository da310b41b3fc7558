# Build helpers shared by every directory: warnings, sanitizers, libraries, tests and fuzz targets.

# Warnings are errors on our own code only.
add_library(ryn_warnings INTERFACE)
target_compile_options(ryn_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror)
# g++ 12 at -O3 takes the inlined std::string concatenation for an overlapping memcpy (-Wrestrict)
# where there is none; the warning is wrong there, so it stays off for that compiler only.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12
   AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(ryn_warnings INTERFACE -Wno-restrict)
endif()

if(RYN_SANITIZE)
    list(JOIN RYN_SANITIZE "," _ryn_san)
    add_compile_options(-fsanitize=${_ryn_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_ryn_san})
endif()
if(RYN_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# ryn_library(NAME <short> SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...] [PC_REQUIRES ...]
#             DESCRIPTION <text>)
# builds the objects once and makes of them the installed library ryn_<short> (ryn::<short>,
# hidden visibility) and the static library ryn_<short>_internal that tests link to reach internal
# functions. The installed library is shared (SOVERSION) or, with RYN_STATIC, a static archive.
# A private library that is itself a static library of this project and not installed (the
# simulated drive) goes into the archive whole; a private imported library (header-only JSON) is
# needed only to build, so the exported package does not name it.
function(ryn_library)
    cmake_parse_arguments(A "" "NAME;DESCRIPTION" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS;PC_REQUIRES" ${ARGN})
    set(obj ryn_${A_NAME}_objects)
    add_library(${obj} OBJECT ${A_SOURCES})
    set_target_properties(${obj} PROPERTIES POSITION_INDEPENDENT_CODE ON
        C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    target_include_directories(${obj} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${RYN_GENERATED_INCLUDE}> $<INSTALL_INTERFACE:include>
        PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${obj} PUBLIC ${A_PUBLIC_LIBS} PRIVATE ryn_warnings ${A_PRIVATE_LIBS})

    set(private_links)
    set(embedded)
    foreach(lib ${A_PRIVATE_LIBS})
        set(type "")
        set(installed "")
        if(TARGET ${lib})
            get_target_property(type ${lib} TYPE)
            get_target_property(installed ${lib} RYN_INSTALLED)
            get_target_property(imported ${lib} IMPORTED)
        endif()
        if(installed OR lib MATCHES "^ryn_(tra|vok|oxb|sup)$")
            list(APPEND private_links ${lib})
        elseif(RYN_STATIC AND type STREQUAL "STATIC_LIBRARY" AND NOT imported)
            list(APPEND embedded $<TARGET_OBJECTS:${lib}>)
            list(APPEND private_links $<BUILD_INTERFACE:${lib}>)
        else()
            list(APPEND private_links $<BUILD_INTERFACE:${lib}>)
        endif()
    endforeach()

    if(RYN_STATIC)
        add_library(ryn_${A_NAME} STATIC $<TARGET_OBJECTS:${obj}> ${embedded})
        # A C program links the archives with the C compiler: name the C++ runtime for it.
        target_link_libraries(ryn_${A_NAME} INTERFACE $<$<NOT:$<LINK_LANGUAGE:CXX>>:stdc++> m)
        set(RYN_PC_LIBS_PRIVATE "-lstdc++ -lm -pthread")
    else()
        add_library(ryn_${A_NAME} SHARED $<TARGET_OBJECTS:${obj}>)
        set_target_properties(ryn_${A_NAME} PROPERTIES VERSION ${PROJECT_VERSION}
            SOVERSION ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN")
        set(RYN_PC_LIBS_PRIVATE "")
    endif()
    add_library(ryn::${A_NAME} ALIAS ryn_${A_NAME})
    set_target_properties(ryn_${A_NAME} PROPERTIES EXPORT_NAME ${A_NAME} RYN_INSTALLED ON)
    target_include_directories(ryn_${A_NAME} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${RYN_GENERATED_INCLUDE}> $<INSTALL_INTERFACE:include>)
    target_link_libraries(ryn_${A_NAME} PUBLIC ${A_PUBLIC_LIBS} PRIVATE ${private_links})

    add_library(ryn_${A_NAME}_internal STATIC $<TARGET_OBJECTS:${obj}>)
    target_include_directories(ryn_${A_NAME}_internal PUBLIC
        ${PROJECT_SOURCE_DIR}/include ${RYN_GENERATED_INCLUDE} ${CMAKE_CURRENT_SOURCE_DIR}
        ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(ryn_${A_NAME}_internal PUBLIC ${A_PUBLIC_LIBS} ${A_PRIVATE_LIBS})

    install(TARGETS ryn_${A_NAME} EXPORT ryn-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    file(RELATIVE_PATH RYN_PC_RELATIVE "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    set(RYN_PC_NAME ${A_NAME})
    set(RYN_PC_DESCRIPTION "${A_DESCRIPTION}")
    list(JOIN A_PC_REQUIRES " " RYN_PC_REQUIRES)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/ryn.pc.in
        ${PROJECT_BINARY_DIR}/pkgconfig/ryn-${A_NAME}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/ryn-${A_NAME}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

# ryn_test(NAME <exe> SOURCES ... LIBS ... [DEFINITIONS ...] [DEPENDS ...] [LABELS ...]): one
# GoogleTest program, its cases registered with CTest under the labels given (concurrency: the
# programs whose cases run threads, which scripts/test also runs under ThreadSanitizer).
# Left out, with the rest of the GoogleTest programs, when GoogleTest was not found.
function(ryn_test)
    cmake_parse_arguments(A "" "NAME" "SOURCES;LIBS;DEFINITIONS;DEPENDS;LABELS" ${ARGN})
    if(NOT GTest_FOUND)
        return()
    endif()
    add_executable(${A_NAME} ${A_SOURCES})
    target_link_libraries(${A_NAME} PRIVATE ${A_LIBS} GTest::gtest GTest::gmock GTest::gtest_main
        ryn_warnings)
    target_include_directories(${A_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tests/common)
    target_compile_definitions(${A_NAME} PRIVATE RYN_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data"
        ${A_DEFINITIONS})
    if(A_DEPENDS)
        add_dependencies(${A_NAME} ${A_DEPENDS})
    endif()
    if(A_LABELS)
        gtest_discover_tests(${A_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS "${A_LABELS}")
    else()
        gtest_discover_tests(${A_NAME} DISCOVERY_TIMEOUT 60)
    endif()
endfunction()

# ryn_fuzz(NAME <target> SOURCES ... LIBS ... CORPUS <dir>): a libFuzzer target under the fuzz
# preset; in every other build the same entry point linked to a small driver that replays the seed
# corpus, registered with CTest.
function(ryn_fuzz)
    cmake_parse_arguments(A "" "NAME;CORPUS" "SOURCES;LIBS" ${ARGN})
    add_executable(${A_NAME} ${A_SOURCES})
    target_link_libraries(${A_NAME} PRIVATE ${A_LIBS} ryn_warnings)
    if(RYN_FUZZ)
        target_link_options(${A_NAME} PRIVATE -fsanitize=fuzzer)
        add_test(NAME ${A_NAME}.corpus COMMAND ${A_NAME} -runs=0 ${A_CORPUS})
    else()
        target_sources(${A_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
        add_test(NAME ${A_NAME}.corpus COMMAND ${A_NAME} ${A_CORPUS})
    endif()
endfunction()

# ryn_use_asio(<target> <PUBLIC|PRIVATE>): standalone asio (header-only, no Boost) for a target.
# g++ refuses asio's atomic fences under ThreadSanitizer (-Wtsan); its handlers are ordered by the
# scheduler's mutex all the same, so that warning alone is silenced there.
function(ryn_use_asio target scope)
    find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
    target_include_directories(${target} SYSTEM ${scope} ${ASIO_INCLUDE_DIR})
    target_compile_definitions(${target} ${scope} ASIO_STANDALONE ASIO_NO_DEPRECATED)
    if("thread" IN_LIST RYN_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} ${scope} -Wno-tsan)
    endif()
endfunction()
