# What the shared libraries show is what their headers declare.
set(zv_exports_environment NM=${CMAKE_NM} OBJDUMP=${CMAKE_OBJDUMP})
foreach(pair ZVHttpBase:ZV_HTTP_BASE_API:include/*.h ZVBase:ZV_BASE_API:platform/ZVBase.h lumbase:LUM_API:platform/LumLog.h)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 library)
  list(GET pair 1 macro)
  list(GET pair 2 pattern)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${pattern})
  add_test(NAME exports_${library} COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/ExportsTest.py
                                           exports $<TARGET_FILE:${library}> ${macro} ${headers})
  set_tests_properties(exports_${library} PROPERTIES TIMEOUT 60 LABELS api ENVIRONMENT "${zv_exports_environment}")
endforeach()

# The library reaches the platform through the published functions only, since a player may bring its own.
add_test(NAME imports_ZVHttpBase COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/ExportsTest.py
                                         imports $<TARGET_FILE:ZVHttpBase> "ZV_BASE_API|LUM_API"
                                         ${PROJECT_SOURCE_DIR}/platform/ZVBase.h ${PROJECT_SOURCE_DIR}/platform/LumLog.h)
set_tests_properties(imports_ZVHttpBase PROPERTIES TIMEOUT 60 LABELS api ENVIRONMENT "${zv_exports_environment}")

# The libraries and the program find what they need on any Windows.
if(WIN32)
  foreach(target ZVHttpBase ZVBase lumbase zvhttp)
    add_test(NAME needs_only_the_system_${target}
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_LIST_DIR}/ExportsTest.py
                     system $<TARGET_FILE:${target}> ZVHttpBase ZVBase lumbase)
    set_tests_properties(needs_only_the_system_${target} PROPERTIES TIMEOUT 60 LABELS api
                                                                    ENVIRONMENT "${zv_exports_environment}")
  endforeach()
endif()
