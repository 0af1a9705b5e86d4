# bench_window runs the real launcher with its window under Xvfb, with probe plugins in it.
add_library(bench_windowprobe MODULE "${CMAKE_CURRENT_SOURCE_DIR}/WindowProbePlugin.cpp")
target_link_libraries(bench_windowprobe PRIVATE libupdater Qt6::Widgets)
set_target_properties(bench_windowprobe PROPERTIES OUTPUT_NAME windowprobe PREFIX "lib" SUFFIX ".so")
if(TARGET test_servers AND TARGET window)
    target_link_libraries(bench_window PRIVATE vantor test_servers)
    target_compile_definitions(bench_window PRIVATE
        VANTOR_TOOL="$<TARGET_FILE:vantor_tool>"
        UPDATER_EXECUTABLE="$<TARGET_FILE:updater>"
        WINDOW_PROBE_PLUGIN="$<TARGET_FILE:bench_windowprobe>"
        ENGINE_PROBE_PLUGIN="$<TARGET_FILE:bench_engineprobe>"
        TRAILER="${CMAKE_CURRENT_SOURCE_DIR}/media/testsrc-1280x720.mp4"
        BUNDLED_PLUGIN_DIR="${PROJECT_BINARY_DIR}/${UPDATER_PLUGIN_INSTALL_DIR}")
    add_dependencies(bench_window vantor_tool updater settings sysinfo network engine errors i18n notifications window
        bench_windowprobe bench_engineprobe)
else()
    set_target_properties(bench_window PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
