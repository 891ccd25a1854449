# driver: overwrites or reads a whole device.
add_library(vantrelle_driver STATIC
    driver_output.cpp
    driver_output.h
    driver_pass.cpp
    driver_pass.h
    driver_request.cpp
    driver_request.h
    driver_run.cpp
    driver_run.h
    driver_transfer.cpp
    driver_transfer.h)
target_link_libraries(vantrelle_driver
    PUBLIC vantrelle_helper_common
    PRIVATE vantrelle_pattern)

add_executable(driver driver_main.cpp)
target_link_libraries(driver PRIVATE vantrelle_driver)
set_target_properties(driver PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTRELLE_HELPER_OUTPUT_DIR})
install(TARGETS driver RUNTIME DESTINATION ${VANTRELLE_INSTALL_DIR}/lib)
install(FILES ${PROJECT_SOURCE_DIR}/docs/driver.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
