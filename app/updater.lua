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

-- How often every game is checked for an update, in minutes (fractions allowed). With
-- automatic = true what a check finds is installed at once; without it (the default when the
-- launcher shows a window) the player chooses. docs/settings.md lists every setting.
update = {
    check_interval_minutes = 60,
}

-- Network access, shared by every plugin: transfers at once, KiB a second for all of them
-- (0: no limit), seconds without data before a transfer is retried, and the proxy (empty:
-- the system's; "none"; "http://host:port"; "socks5://host:port").
network = {
    max_connections = 4,
    rate_limit = 0,
    timeout = 30,
    proxy = "",
}

-- The games. Each project <id> is installed from the repository <url> (the project's files lie
-- under <url>/<id>/), following a release channel, into <dir>. Only releases signed with one of
-- its public keys are accepted; keys are read from this script alone, never from the command
-- line or the saved preferences. Names and news may be given per language.
--
-- projects.mygame = {
--     name = { en = "My game", fr = "Mon jeu" },
--     url = "https://updates.example.org/",
--     channel = "stable",
--     dir = data_location() .. "/games/mygame",
--     keys = { "base64 Ed25519 public key, as printed by 'vantor keygen'" },
--     executable = "bin/mygame",
--     -- The launcher's options named game-<name> go to the game (the filter is a regular
--     -- expression whose first group becomes the name): "updater --game-lang=fr" gives "--lang=fr".
--     arguments = command_line_args("game-(.*)", "--%(name)=%(value)"),
--     icon = "mygame.png", banner = "mygame-banner.png", trailer = "mygame.mp4",
--     news = { en = "What is new" },
-- }
projects = {}

-- The demonstration game, written by the build next to this script (scripts/run-launcher).
if file_exists(root .. "/demo.lua") then
    include("demo.lua")
end

-- Texts shown by the launcher, per language.
welcome = {
    en = "Welcome to the Tarvel launcher",
    fr = "Bienvenue dans le lanceur Tarvel",
}

-- Developer mode: more logging and tools for plugin authors.
dev_mode = false

print("configuration read from " .. root .. " on " .. sys.osname)
