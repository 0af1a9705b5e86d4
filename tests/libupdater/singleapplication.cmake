# The single-instance classes are tested across real processes: singleapp_helper is one
# instance, primary or secondary, driven by tst_singleapplication.
list(APPEND updater_special_tests tst_singleapplication)

add_executable(singleapp_helper singleapplication/singleapp_helper.cpp)
target_link_libraries(singleapp_helper PRIVATE libupdater)

updater_add_test(tst_singleapplication SOURCES tst_singleapplication.cpp LIBRARIES libupdater)
add_dependencies(tst_singleapplication singleapp_helper)
target_compile_definitions(tst_singleapplication PRIVATE
    SINGLEAPP_HELPER="$<TARGET_FILE:singleapp_helper>")
