# bench_engine runs the real launcher (settings, network and engine plugins and a probe) against
# the vantor tool on the generated game trees, served by nginx.
add_library(bench_engineprobe MODULE "${CMAKE_CURRENT_SOURCE_DIR}/EngineProbePlugin.cpp")
target_link_libraries(bench_engineprobe PRIVATE libupdater)
set_target_properties(bench_engineprobe PROPERTIES OUTPUT_NAME engineprobe PREFIX "lib" SUFFIX ".so")
if(TARGET test_servers)
    target_link_libraries(bench_engine PRIVATE vantor test_servers)
    target_compile_definitions(bench_engine PRIVATE
        VANTOR_TOOL="$<TARGET_FILE:vantor_tool>"
        UPDATER_EXECUTABLE="$<TARGET_FILE:updater>"
        PROBE_PLUGIN="$<TARGET_FILE:bench_engineprobe>"
        BUNDLED_PLUGIN_DIR="${PROJECT_BINARY_DIR}/${UPDATER_PLUGIN_INSTALL_DIR}")
    add_dependencies(bench_engine vantor_tool updater settings network engine bench_engineprobe)
else()
    set_target_properties(bench_engine PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
