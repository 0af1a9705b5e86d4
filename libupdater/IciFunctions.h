#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QVariant>

namespace tvl {
class ICISettings;
class ICISettingsContext;
}

namespace tvl::updater {

/**
 * Makes the launcher's native functions callable from configuration scripts evaluated by
 * `settings`: same_paths, data_location, global_data_location, set_application_name,
 * file_exists, application_path, print, compare_versions, regex_match and command_line_args.
 * to_hex and to_base64 are left to the host.
 *
 * Each handler requires an exact number of arguments; any other count fails the script at the
 * calling line with the function's usage message. Every other problem (a missing file, an
 * invalid pattern) is answered by a value, without a message.
 */
LIBUPDATER_EXPORT void registerIciFunctions(tvl::ICISettings* settings);

/// same_paths(a, b): whether both paths name the same file (QFileInfo equality).
LIBUPDATER_EXPORT QVariant ici_same_paths(tvl::ICISettingsContext* context);
/// data_location(): the directory holding this application's data directory.
LIBUPDATER_EXPORT QVariant ici_data_location(tvl::ICISettingsContext* context);
/// global_data_location(): the data directory shared by all applications.
LIBUPDATER_EXPORT QVariant ici_global_data_location(tvl::ICISettingsContext* context);
/// set_application_name(name): renames the application; its standard locations follow.
LIBUPDATER_EXPORT QVariant ici_set_application_name(tvl::ICISettingsContext* context);
/// file_exists(path)
LIBUPDATER_EXPORT QVariant ici_file_exists(tvl::ICISettingsContext* context);
/// application_path(): the full path of the running executable.
LIBUPDATER_EXPORT QVariant ici_application_path(tvl::ICISettingsContext* context);
/// print(text): logs `text` at level 2 as coming from the calling script line.
LIBUPDATER_EXPORT QVariant ici_print(tvl::ICISettingsContext* context);
/// compare_versions(a, b): -1, 0 or 1 in the order of tvl::VersionNumber.
LIBUPDATER_EXPORT QVariant ici_compare_versions(tvl::ICISettingsContext* context);
/// regex_match(pattern, text): whether the pattern matches the whole text.
LIBUPDATER_EXPORT QVariant ici_regex_match(tvl::ICISettingsContext* context);

/**
 * command_line_args(filter, format): arguments for another program built from the updater's
 * own options. For every option name that `filter` matches as a whole and that has a value,
 * `format` with "%(name)" replaced by the first capture group of the filter (the whole name
 * when it has none) and "%(value)" by the value. Both placeholders are required; an invalid
 * filter or a format without them gives an empty list. The option names are read on the first
 * call that gets to them and kept for the rest of the process.
 */
LIBUPDATER_EXPORT QVariant command_line_args(tvl::ICISettingsContext* context);

/// to_hex(text): the UTF-8 bytes of `text` in lower-case hexadecimal.
LIBUPDATER_EXPORT QVariant ici_to_hex(tvl::ICISettingsContext* context);
/// to_base64(text): the UTF-8 bytes of `text` in Base64.
LIBUPDATER_EXPORT QVariant ici_to_base64(tvl::ICISettingsContext* context);

} // namespace tvl::updater
