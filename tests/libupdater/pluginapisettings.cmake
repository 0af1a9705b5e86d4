# tst_pluginapisettings reads settings through the API from a real settings stack, switches
# background mode over real fixture plugins and restarts itself to see the restarted command line.
list(APPEND updater_special_tests tst_pluginapisettings)
updater_add_test(tst_pluginapisettings LIBRARIES libupdater SOURCES
    "${CMAKE_CURRENT_SOURCE_DIR}/tst_pluginapisettings.cpp"
    "${CMAKE_CURRENT_SOURCE_DIR}/fixtures/PluginScenario.h"
)
add_dependencies(tst_pluginapisettings pluginhost_fixture)
target_compile_definitions(tst_pluginapisettings PRIVATE
    FIXTURE_PLUGIN="$<TARGET_FILE:pluginhost_fixture>"
    ICON_DIR="${CMAKE_CURRENT_SOURCE_DIR}/icons")
