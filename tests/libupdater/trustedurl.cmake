# tst_trustedurl builds its hosts from the two trusted domains the library was configured with.
list(APPEND updater_special_tests tst_trustedurl)
updater_add_test(tst_trustedurl SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_trustedurl.cpp" LIBRARIES libupdater)
target_compile_definitions(tst_trustedurl PRIVATE
    UPDATER_PUBLIC_DOMAIN="${UPDATER_PUBLIC_DOMAIN}"
    UPDATER_INTERNAL_DOMAIN="${UPDATER_INTERNAL_DOMAIN}")
