# Every public header compiles alone, twice included, as C11 and as C++11, with all warnings as errors. There is nothing to
# run: the build fails.
file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/platform/*.h)
foreach(header IN LISTS headers)
  get_filename_component(name ${header} NAME)
  foreach(language c cpp)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${name}.${language})
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${name}\"\n#include \"${name}\"\n")
    list(APPEND header_sources ${source})
  endforeach()
endforeach()

add_library(public_headers OBJECT ${header_sources})
target_include_directories(public_headers PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform)
target_compile_options(public_headers PRIVATE -Wall -Wextra -Wpedantic -Werror)
set_target_properties(public_headers PROPERTIES C_STANDARD 11 CXX_STANDARD 11)
