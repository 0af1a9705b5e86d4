# tst_settingsmanager builds its hosts from the two trusted domains the library was configured with.
list(APPEND updater_special_tests tst_settingsmanager)
updater_add_test(tst_settingsmanager SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_settingsmanager.cpp" LIBRARIES libupdater)
target_compile_definitions(tst_settingsmanager PRIVATE
    UPDATER_PUBLIC_DOMAIN="${UPDATER_PUBLIC_DOMAIN}" UPDATER_INTERNAL_DOMAIN="${UPDATER_INTERNAL_DOMAIN}")
