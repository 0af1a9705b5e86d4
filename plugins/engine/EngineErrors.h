#pragma once

#include <libupdater/UpdaterError.h>

#include <vantor/VantorTypes.h>

#include <QtCore/QString>

/**
 * The errors the engine reports through the error event. Each kind has its own type number in
 * UpdateErrorCategory (what comes from the repository) or InstallerErrorCategory (what happens on
 * this machine), so that support recognises it by its "U" identifier; docs/engine.md lists them
 * with the text a player sees and what to do.
 */
namespace EngineErrors {

enum Kind {
    // UpdateErrorCategory
    Unreachable = 0x0001,
    ServerRefused = 0x0002,
    BadSignature = 0x0003,
    UntrustedKey = 0x0004,
    OlderRelease = 0x0005,
    ExpiredRelease = 0x0006,
    TamperedData = 0x0007,
    PathOutsideDirectory = 0x0008,
    NoPublicKey = 0x0009,
    UnknownChannel = 0x000A,
    // InstallerErrorCategory
    DiskFull = 0x0101,
    NotWritable = 0x0102,
    DirectoryBusy = 0x0103,
    NotInstalled = 0x0104,
    BrokenRecords = 0x0105,
    DamagedFiles = 0x0106,
    NothingToRollBack = 0x0107,
    FileError = 0x0108,
    BadSettings = 0x0109,
    GameDoesNotStart = 0x010A,
    GameRunning = 0x010B,
};

/// The error for a failed operation of the update library; a null error for a cancelled one.
tvl::updater::UpdaterError fromResult(const QString& projectName, const tvl::vantor::UpdateResult& result);
/// An error of `kind` about the project, with `details` for support.
tvl::updater::UpdaterError make(Kind kind, const QString& projectName, const QString& details);

} // namespace EngineErrors
