# Warnings for all of the project's own code.
add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Woverloaded-virtual -Wdouble-promotion -Wformat=2 -Wimplicit-fallthrough)
if(VELORUM_WERROR)
  add_compile_options(-Werror)
endif()
