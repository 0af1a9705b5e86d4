# Run as a script at build time: the demonstration game in two versions, a key pair (made once
# per build directory), version 1.0 published into the repository, and the configuration that
# names the game with the public key.
#   -DVANTOR=<tool> -DSOURCE=<app/demo> -DOUTPUT=<build/demo> -DCONFIG=<bin/demo.lua>
foreach(version 1 2)
    set(tree "${OUTPUT}/v${version}")
    file(REMOVE_RECURSE "${tree}")
    file(MAKE_DIRECTORY "${tree}/bin" "${tree}/data")
    set(DEMO_VERSION "${version}.0")
    configure_file("${SOURCE}/demo-game.sh.in" "${tree}/bin/demo-game" @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    configure_file("${SOURCE}/levels-${version}.txt" "${tree}/data/levels.txt" COPYONLY)
endforeach()
configure_file("${SOURCE}/readme-1.txt" "${OUTPUT}/v1/README.txt" COPYONLY)
configure_file("${SOURCE}/changes-2.txt" "${OUTPUT}/v2/CHANGES.txt" COPYONLY)

set(key "${OUTPUT}/demo.key")
if(NOT EXISTS "${key}" OR NOT EXISTS "${key}.pub")
    execute_process(COMMAND "${VANTOR}" keygen "${key}" RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "vantor keygen failed: ${error}")
    endif()
endif()
file(READ "${key}.pub" DEMO_PUBLIC_KEY)
string(STRIP "${DEMO_PUBLIC_KEY}" DEMO_PUBLIC_KEY)

# Version 1.0 only: the run publishes 2.0 while the launcher watches.
file(REMOVE_RECURSE "${OUTPUT}/repository")
execute_process(COMMAND "${VANTOR}" publish "${OUTPUT}/v1" --project demo --channel stable --version 1.0
                        --key "${key}" --repository "${OUTPUT}/repository"
                RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "vantor publish failed: ${error}")
endif()
configure_file("${SOURCE}/demo.lua.in" "${CONFIG}" @ONLY)
