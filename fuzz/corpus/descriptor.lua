name = "settings"
autoload = true
mandatory = false
depends = { "core", "network" }
soft_depends = "ui"
data = { theme = "dark", sizes = { 16, 32 }, nested = { a = { b = true } } }
label = root .. "/" .. sys.osname
