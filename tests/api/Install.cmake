# An installed tree serves a program of somebody else's, through CMake and through pkg-config. Such a program is built
# without sanitizers, so the test needs libraries without them.
if(NOT ZV_SANITIZE AND NOT ZV_FUZZ)
  add_test(NAME install_test
           COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/InstallTest.py ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR}
                   ${CMAKE_CURRENT_LIST_DIR}/install_consumer ${PROJECT_SOURCE_DIR}/examples/fetch.c ${CMAKE_C_COMPILER}
                   ${CMAKE_CURRENT_BINARY_DIR}/install_test)
  set_tests_properties(install_test PROPERTIES TIMEOUT 300 LABELS api)
endif()
