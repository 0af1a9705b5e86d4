# The plugin host is tested against real plugin libraries: pluginhost_fixture is one plugin
# whose behaviour comes from its descriptor's data (the tests copy it under each plugin name),
# pluginhost_plainobject a Qt plugin whose root object is no UpdaterPlugin.
add_library(pluginhost_fixture MODULE fixtures/FixturePlugin.cpp)
target_link_libraries(pluginhost_fixture PRIVATE libupdater)

add_library(pluginhost_plainobject MODULE fixtures/PlainObjectPlugin.cpp)
target_link_libraries(pluginhost_plainobject PRIVATE Qt6::Core)

foreach(test tst_plugininfo tst_pluginsmanager tst_pluginapi)
    list(APPEND updater_special_tests ${test})
    updater_add_test(${test} LIBRARIES libupdater SOURCES
        "${CMAKE_CURRENT_SOURCE_DIR}/${test}.cpp" "${CMAKE_CURRENT_SOURCE_DIR}/fixtures/PluginScenario.h")
    add_dependencies(${test} pluginhost_fixture pluginhost_plainobject)
    target_compile_definitions(${test} PRIVATE
        FIXTURE_PLUGIN="$<TARGET_FILE:pluginhost_fixture>"
        PLAIN_OBJECT_PLUGIN="$<TARGET_FILE:pluginhost_plainobject>")
endforeach()
