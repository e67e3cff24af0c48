# Warnings, all of them errors, for every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor
                    -Woverloaded-virtual -Wimplicit-fallthrough -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
if(KESTRELON_SANITIZE)
  add_compile_options(-fsanitize=${KESTRELON_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KESTRELON_SANITIZE})
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 finds overlapping copies in std::string's operator+ where there are none (GCC bug 105651,
  # mended in 13).
  add_compile_options(-Wno-restrict)
endif()
