# How every target is compiled: one dialect, one set of warnings, one floating-point model.
#
# offlinetz_library(NAME ...) and offlinetz_program(NAME ...) take what add_library and
# add_executable take. They attach the settings, and a library gets the alias offlinetz::NAME.
find_package(Threads REQUIRED)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(settings INTERFACE)
add_library(offlinetz::settings ALIAS settings)
target_compile_features(settings INTERFACE cxx_std_17)
target_compile_options(settings INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wold-style-cast -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef
  # Answers are the same bit for bit with every compiler and processor: no fused multiply-add.
  -ffp-contract=off
  # Hardening: stack protector, read-only relocations, no executable stack, checked libc calls.
  -fstack-protector-strong)
target_link_options(settings INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A loaded library that has a unique symbol is never unloaded.
  target_compile_options(settings INTERFACE -fno-gnu-unique)
endif()
if(OFFLINETZ_SANITIZERS)
  target_compile_options(settings INTERFACE
    -fsanitize=${OFFLINETZ_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(settings INTERFACE -fsanitize=${OFFLINETZ_SANITIZERS})
else()  # The sanitizers check the same calls.
  target_compile_options(settings INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
endif()
if(OFFLINETZ_COVERAGE)
  target_compile_definitions(settings INTERFACE OFFLINETZ_COVERAGE)
  target_compile_options(settings INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(settings INTERFACE --coverage)
endif()

function(offlinetz_settings name)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:offlinetz::settings>)
  set_target_properties(${name} PROPERTIES
    CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

function(offlinetz_library name)
  add_library(${name} ${ARGN})
  add_library(offlinetz::${name} ALIAS ${name})
  offlinetz_settings(${name})
endfunction()

function(offlinetz_program name)
  add_executable(${name} ${ARGN})
  offlinetz_settings(${name})
endfunction()
