# One dialect, one set of warnings and one floating-point model for every target.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wold-style-cast -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef
  # Answers are the same bit for bit with every compiler and processor: no fused multiply-add.
  -ffp-contract=off)

# What an attacker has who finds a hole nonetheless: no stack to smash unnoticed, no table of
# functions to overwrite, no data to run.
add_compile_options(-fstack-protector-strong)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
if(NOT OFFLINETZ_SANITIZERS)  # They check the same calls themselves.
  add_compile_options($<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
endif()

if(OFFLINETZ_SANITIZERS)
  add_compile_options(-fsanitize=${OFFLINETZ_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OFFLINETZ_SANITIZERS})
endif()
if(OFFLINETZ_COVERAGE)
  add_compile_definitions(OFFLINETZ_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)  # Threads count too.
  add_link_options(--coverage)
endif()

find_package(Threads REQUIRED)

# Unique symbols of g++ would keep a loaded library from ever being unloaded.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fno-gnu-unique)
endif()
