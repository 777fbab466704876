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

if(OFFLINETZ_SANITIZERS)
  add_compile_options(-fsanitize=${OFFLINETZ_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OFFLINETZ_SANITIZERS})
endif()
if(OFFLINETZ_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()

find_package(Threads REQUIRED)

# Unique symbols of g++ would keep a loaded library from ever being unloaded.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fno-gnu-unique)
endif()
