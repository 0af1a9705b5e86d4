# bench_vlcframes plays a 4 s, 25 frames/s, 1280x720 h264 clip of ffmpeg's test pattern
# (31 KB) through the system's libvlc.
target_compile_definitions(bench_vlcframes PRIVATE
    VLC_BENCH_VIDEO="${CMAKE_CURRENT_SOURCE_DIR}/media/testsrc-1280x720.mp4")
