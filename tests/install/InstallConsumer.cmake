# Runs as a CMake script: install, configure the consumer, build it, run it.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
set(consumer_build "${WORK_DIR}/consumer-build")

function(run_step description)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${description} failed (${result}):\n${output}")
    endif()
    set(step_output "${output}" PARENT_SCOPE)
endfunction()

run_step("install" "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")

foreach(header basix/basix.h basix/Logger.h libupdater/libupdater.h libupdater/Updater.h libupdater/vlc/vlc.h
        libupdater/UpdaterPluginsManager_p.h vantor/vantor.h vantor/VantorTypes.h)
    if(NOT EXISTS "${prefix}/include/${header}")
        message(FATAL_ERROR "header ${header} was not installed")
    endif()
endforeach()
# Helpers that no interface names stay inside the library.
foreach(header libupdater/QtLocalPeer_p.h libupdater/PluginCalls_p.h)
    if(EXISTS "${prefix}/include/${header}")
        message(FATAL_ERROR "private header ${header} was installed")
    endif()
endforeach()
# A plugin without video needs no libvlc headers: the umbrella header leaves video out.
file(READ "${prefix}/include/libupdater/libupdater.h" umbrella)
if(umbrella MATCHES "#include <libupdater/vlc/")
    message(FATAL_ERROR "libupdater/libupdater.h includes the video headers")
endif()

set(consumer_flags "")
if(SANITIZE)
    set(consumer_flags "-fsanitize=address,undefined")
endif()
run_step("configure consumer" "${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${consumer_build}"
    -G "${GENERATOR}" "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_FLAGS=${consumer_flags}")
run_step("build consumer" "${CMAKE_COMMAND}" --build "${consumer_build}")
run_step("run consumer" "${consumer_build}/consumer")
if(NOT step_output MATCHES "libupdater 3\\.11\\.1 4e83d23 ok")
    message(FATAL_ERROR "unexpected consumer output:\n${step_output}")
endif()
message(STATUS "consumer: ${step_output}")

# The plugin of the README's "write your first plugin", built against the installation and
# loaded by the installed launcher next to the bundled plugins.
set(plugin_build "${WORK_DIR}/plugin-build")
run_step("configure plugin" "${CMAKE_COMMAND}" -S "${PLUGIN_DIR}" -B "${plugin_build}"
    -G "${GENERATOR}" "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_FLAGS=${consumer_flags}")
run_step("build plugin" "${CMAKE_COMMAND}" --build "${plugin_build}")
set(plugin_dir "${prefix}/${PLUGIN_INSTALL_DIR}")
if(NOT EXISTS "${plugin_dir}/libconsole.so")
    message(FATAL_ERROR "the bundled plugins were not installed in ${plugin_dir}")
endif()
file(COPY "${plugin_build}/libhello.so" "${PLUGIN_DIR}/hello.updaterplugin" DESTINATION "${plugin_dir}")
set(ENV{XDG_CONFIG_HOME} "${WORK_DIR}/config")
set(ENV{HOME} "${WORK_DIR}/home")
run_step("run the installed launcher" "${prefix}/bin/updater" --no-gui --list-plugins)
foreach(expected "hello  loaded" "sysinfo  loaded" "Hello from")
    string(FIND "${step_output}" "${expected}" found)
    if(found EQUAL -1)
        message(FATAL_ERROR "the installed launcher did not say \"${expected}\":\n${step_output}")
    endif()
endforeach()
