# The trivial plugin that bench_pluginloading copies 200 times.
add_library(bench_trivialplugin MODULE "${CMAKE_CURRENT_SOURCE_DIR}/TrivialPlugin.cpp")
target_link_libraries(bench_trivialplugin PRIVATE libupdater)
target_compile_definitions(bench_trivialplugin PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII)
set_target_properties(bench_trivialplugin PROPERTIES OUTPUT_NAME trivialplugin PREFIX "lib" SUFFIX ".so")

add_dependencies(bench_pluginloading bench_trivialplugin)
target_compile_definitions(bench_pluginloading PRIVATE TRIVIAL_PLUGIN="$<TARGET_FILE:bench_trivialplugin>")
