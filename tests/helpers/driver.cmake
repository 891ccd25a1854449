vantrelle_add_test(driver_test
    SOURCES driver_test.cpp
    LIBRARIES vantrelle_driver)
target_compile_definitions(driver_test PRIVATE
    DRIVER_PROGRAM="$<TARGET_FILE:driver>"
    DRIVER_MAN_PAGE="${PROJECT_SOURCE_DIR}/docs/driver.1")
add_dependencies(driver_test driver)
