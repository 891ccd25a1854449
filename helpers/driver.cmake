# driver: overwrites or reads a whole device.
pkg_check_modules(URING REQUIRED IMPORTED_TARGET liburing)

add_library(vantrelle_driver STATIC
    driver_marks.cpp
    driver_marks.h
    driver_memory.cpp
    driver_memory.h
    driver_output.cpp
    driver_output.h
    driver_pass.cpp
    driver_pass.h
    driver_plan.h
    driver_read_back.cpp
    driver_read_back.h
    driver_request.cpp
    driver_request.h
    driver_ring.cpp
    driver_ring.h
    driver_run.cpp
    driver_run.h
    driver_target.cpp
    driver_target.h
    driver_transfer.cpp
    driver_transfer.h)
target_link_libraries(vantrelle_driver
    PUBLIC vantrelle_helper_common
    PRIVATE vantrelle_pattern PkgConfig::URING)

add_executable(driver driver_main.cpp driver_log.cpp)
target_link_libraries(driver PRIVATE vantrelle_driver)
set_target_properties(driver PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VANTRELLE_HELPER_OUTPUT_DIR})
install(TARGETS driver RUNTIME DESTINATION ${VANTRELLE_INSTALL_DIR}/lib)
