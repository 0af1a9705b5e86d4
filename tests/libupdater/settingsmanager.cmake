# The command-line provider reads the process's own arguments, so tst_settingsmanager runs
# settingsmanager_helper with the command lines it needs.
list(APPEND updater_special_tests tst_settingsmanager)

add_executable(settingsmanager_helper "${CMAKE_CURRENT_SOURCE_DIR}/settingsmanager_helper.cpp")
target_link_libraries(settingsmanager_helper PRIVATE libupdater)

updater_add_test(tst_settingsmanager SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_settingsmanager.cpp"
    LIBRARIES libupdater)
add_dependencies(tst_settingsmanager settingsmanager_helper)
target_compile_definitions(tst_settingsmanager PRIVATE
    SETTINGSMANAGER_HELPER="$<TARGET_FILE:settingsmanager_helper>")
