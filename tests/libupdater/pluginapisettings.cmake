# Settings through the plugin API, background mode and restart over copies of the fixture plugin.
list(APPEND updater_special_tests tst_pluginapisettings)
updater_add_test(tst_pluginapisettings LIBRARIES libupdater SOURCES
    "${CMAKE_CURRENT_SOURCE_DIR}/tst_pluginapisettings.cpp" "${CMAKE_CURRENT_SOURCE_DIR}/fixtures/PluginScenario.h")
add_dependencies(tst_pluginapisettings pluginhost_fixture)
target_compile_definitions(tst_pluginapisettings PRIVATE FIXTURE_PLUGIN="$<TARGET_FILE:pluginhost_fixture>")
