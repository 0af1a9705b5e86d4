# The icon table reads the application's resources under ":/icons/"; the test brings its own.
list(APPEND updater_special_tests tst_uiutils)
updater_add_test(tst_uiutils
    SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_uiutils.cpp" "${CMAKE_CURRENT_SOURCE_DIR}/icons.qrc"
    LIBRARIES libupdater)
