# A Windows target: everything that is not the system's is linked in, and the exported names are cdecl without decoration.
# Headers without machine code, and GoogleTest's sources, are those of the machine that builds.
add_compile_definitions(CURL_STATICLIB _WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX __USE_MINGW_ANSI_STDIO=1)
add_link_options(-static -static-libgcc -static-libstdc++)
set(CMAKE_SHARED_LIBRARY_PREFIX "")

set(zv_host_headers ${PROJECT_BINARY_DIR}/host_headers)
file(MAKE_DIRECTORY ${zv_host_headers})
foreach(name boost CLI nlohmann)
  if(EXISTS /usr/include/${name} AND NOT EXISTS ${zv_host_headers}/${name})
    file(CREATE_LINK /usr/include/${name} ${zv_host_headers}/${name} SYMBOLIC)
  endif()
endforeach()

foreach(name Boost::headers CLI11::CLI11 nlohmann_json::nlohmann_json)
  add_library(${name} INTERFACE IMPORTED)
  target_include_directories(${name} INTERFACE ${zv_host_headers})
endforeach()
set(Boost_INCLUDE_DIRS ${zv_host_headers})

if(ZV_TESTS)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
endif()
