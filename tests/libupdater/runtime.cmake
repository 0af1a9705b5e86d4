# tst_runtime starts runtime_helper for everything that is only visible from outside a process:
# the crash marker across runs, the restarted command line, console output.
list(APPEND updater_special_tests tst_runtime)

add_executable(runtime_helper "${CMAKE_CURRENT_SOURCE_DIR}/runtime_helper.cpp")
target_link_libraries(runtime_helper PRIVATE libupdater)

updater_add_test(tst_runtime SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_runtime.cpp" LIBRARIES libupdater)
add_dependencies(tst_runtime runtime_helper)
target_compile_definitions(tst_runtime PRIVATE RUNTIME_HELPER="$<TARGET_FILE:runtime_helper>")
