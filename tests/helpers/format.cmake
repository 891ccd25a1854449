# Runs the built program; checks its work with tools that it does not use, and by hand.
vantrelle_add_test(format_test SOURCES format_test.cpp LIBRARIES Qt6::Gui)
target_compile_definitions(format_test PRIVATE
    FORMAT_PROGRAM="$<TARGET_FILE:format_helper>"
    FORMAT_MAN_PAGE="${PROJECT_SOURCE_DIR}/docs/format.1")
add_dependencies(format_test format_helper)
