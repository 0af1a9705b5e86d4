-- The launcher's configuration script, read at start and watched while the launcher runs:
-- save this file and the launcher takes the new values at once (the console plugin prints
-- each change). A script with an error changes nothing; the launcher logs where the error is
-- and keeps the values it had.
--
-- Every global variable left at the end is a setting; tables make dotted keys, so
-- `plugins = { disable = { "console" } }` sets "plugins.disable". Other layers hide what is
-- set here: values set while running, then the command line (--key=value), then the user's
-- saved preferences (updater.ini in the preferences directory).
--
-- Set by the launcher before this script runs:
--   root          the launcher's directory
--   sys.osname    the operating system ("linux")
-- Functions: file_exists(path), same_paths(a, b), application_path(), data_location(),
--   global_data_location(), set_application_name(name), compare_versions(a, b) (-1, 0, 1),
--   regex_match(pattern, text), command_line_args(filter, format), print(text) (to the log),
--   include(file).

-- Language of the texts; looked up as key.<lang>_<COUNTRY>, key.<lang>, key.<default_lang>,
-- then key.en.
i18n = {
    lang = "en",
    country = "",
    default_lang = "en",
}

-- Plugins not to load, and plugins to load although their descriptor says autoload = false.
plugins = {
    disable = {},
    enable = {},
}

-- Where updates come from. Only addresses in the maker's own domains are accepted.
update = {
    url = "https://cdn.tarvel.com/launcher/",
    check_interval_minutes = 60,
}

-- Texts shown by the launcher, per language.
welcome = {
    en = "Welcome to the Tarvel launcher",
    fr = "Bienvenue dans le lanceur Tarvel",
}

-- Developer mode: more logging and tools for plugin authors.
dev_mode = false

-- Arguments for the game, taken from the launcher's own options named game-<name> (the filter
-- is a regular expression whose first group becomes the name):
-- "updater --game-lang=fr" gives "--lang=fr".
game = { arguments = command_line_args("game-(.*)", "--%(name)=%(value)") }

print("configuration read from " .. root .. " on " .. sys.osname)
