# The plugin host is tested against real plugin libraries: pluginhost_fixture is one plugin whose behaviour comes
# from its descriptor's data, pluginhost_plainobject a Qt plugin whose root object is no UpdaterPlugin.
add_library(pluginhost_fixture MODULE fixtures/FixturePlugin.cpp)
target_link_libraries(pluginhost_fixture PRIVATE libupdater)
add_library(pluginhost_plainobject MODULE fixtures/PlainObjectPlugin.cpp)
target_link_libraries(pluginhost_plainobject PRIVATE Qt6::Core)
list(APPEND updater_special_tests tst_pluginsmanager)
updater_add_test(tst_pluginsmanager LIBRARIES libupdater SOURCES tst_pluginsmanager.cpp fixtures/PluginScenario.h)
add_dependencies(tst_pluginsmanager pluginhost_fixture pluginhost_plainobject)
target_compile_definitions(tst_pluginsmanager PRIVATE FIXTURE_PLUGIN="$<TARGET_FILE:pluginhost_fixture>"
    PLAIN_OBJECT_PLUGIN="$<TARGET_FILE:pluginhost_plainobject>")
# The same plugin built against a newer library: it calls a function this library lacks.
add_library(pluginhost_newer MODULE fixtures/FixturePlugin.cpp)
target_link_libraries(pluginhost_newer PRIVATE libupdater)
target_compile_definitions(pluginhost_newer PRIVATE FIXTURE_NEEDS_NEWER_LIBRARY)
add_dependencies(tst_pluginsmanager pluginhost_newer)
target_compile_definitions(tst_pluginsmanager PRIVATE NEWER_PLUGIN="$<TARGET_FILE:pluginhost_newer>")
