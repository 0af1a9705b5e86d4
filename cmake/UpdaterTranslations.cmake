# Translations of the launcher's texts. Whatever shows text to users (the library, each plugin)
# keeps its Qt Linguist files as translations/<domain>_<language>.ts next to its sources, the
# domain being its target's name (without "_") and the language "fr", "de" or "pt_BR". The
# build compiles them into translations/<domain>_<language>.qm below the plugin directory,
# where the i18n plugin loads every file of the language chosen.
#
#   updater_add_translations(<target> TS_FILES <files...>)
# compiles the files whenever <target> is built and installs them next to the plugins. The
# target update_translations brings every .ts file up to date with the sources of its target
# (lupdate), for translators to fill in.
function(updater_add_translations target)
    cmake_parse_arguments(ARG "" "" "TS_FILES" ${ARGN})
    set_source_files_properties(${ARG_TS_FILES} PROPERTIES
        OUTPUT_LOCATION "${PROJECT_BINARY_DIR}/${UPDATER_PLUGIN_INSTALL_DIR}/translations")
    qt_add_lupdate(${target} TS_FILES ${ARG_TS_FILES} OPTIONS -no-obsolete -locations none -silent)
    qt_add_lrelease(${target} TS_FILES ${ARG_TS_FILES} QM_FILES_OUTPUT_VARIABLE qm_files OPTIONS -silent)
    install(FILES ${qm_files} DESTINATION "${UPDATER_PLUGIN_INSTALL_DIR}/translations")
endfunction()
