# tst_vlc plays a small video with the system's libvlc, and runs the loader in copies of itself against
# stand-ins built here: vlcfakes/<kind>/libvlc.so, and hide_libvlc, preloaded to make libvlc look absent.
list(APPEND updater_special_tests tst_vlc)
function(updater_add_fake_libvlc kind)
    add_library(fakevlc_${kind} MODULE "${CMAKE_CURRENT_SOURCE_DIR}/vlc/FakeLibvlc.cpp")
    target_compile_definitions(fakevlc_${kind} PRIVATE ${ARGN})
    set_target_properties(fakevlc_${kind} PROPERTIES OUTPUT_NAME vlc PREFIX "lib" SUFFIX ".so"
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/vlcfakes/${kind}")
endfunction()
updater_add_fake_libvlc(complete)
updater_add_fake_libvlc(nologset FAKE_NO_LOG_SET)
updater_add_fake_libvlc(newfails FAKE_NEW_FAILS)
# Two entry points missing, each renamed away rather than left out.
updater_add_fake_libvlc(nosetmute libvlc_audio_set_mute=omitted_1 libvlc_video_set_format=omitted_2)
add_library(hide_libvlc MODULE "${CMAKE_CURRENT_SOURCE_DIR}/vlc/HideLibvlc.cpp")
target_link_libraries(hide_libvlc PRIVATE ${CMAKE_DL_LIBS})

updater_add_test(tst_vlc SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/tst_vlc.cpp" LIBRARIES libupdater)
add_dependencies(tst_vlc hide_libvlc fakevlc_complete fakevlc_nologset fakevlc_newfails fakevlc_nosetmute)
target_compile_definitions(tst_vlc PRIVATE FAKE_LIBVLC_DIR="${CMAKE_CURRENT_BINARY_DIR}/vlcfakes"
    HIDE_LIBVLC="$<TARGET_FILE:hide_libvlc>" TEST_VIDEO="${CMAKE_CURRENT_SOURCE_DIR}/media/testsrc-64x48.mp4")
# The unloaded plugin libraries break the frame-pointer unwinder, and the leak suppression for libvlc's
# start-up (tests/sanitizer/lsan.supp) needs the whole stack.
set_tests_properties(tst_vlc PROPERTIES ENVIRONMENT_MODIFICATION "LSAN_OPTIONS=string_append::fast_unwind_on_malloc=0")
