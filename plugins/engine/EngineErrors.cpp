#include "EngineErrors.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <iterator>

using tvl::updater::UpdaterError;
using tvl::vantor::ErrorCode;

namespace EngineErrors {

namespace {

/// An error with details for support, which the library's own errors do not carry.
class DetailedUpdaterError : public tvl::updater::IUpdaterErrorPrivate
{
public:
    DetailedUpdaterError(quint32 code, const QString& text, const QString& html, const QString& details)
        : m_code(code | DefaultLevel)
        , m_text(text)
        , m_html(html)
        , m_details(details)
    {
    }
    QString text() const override { return m_text; }
    QString html() const override { return m_html; }
    quint32 errorCode() const override { return m_code; }
    QString details() const override { return m_details; }

private:
    static constexpr quint32 DefaultLevel = 0x04000000;
    quint32 m_code;
    QString m_text;
    QString m_html;
    QString m_details;
};

struct Description
{
    Kind kind;
    const char* text;    ///< what happened, for the player; %1 is the game's name
    const char* action;  ///< what to do
};

// QT_TRANSLATE_NOOP marks the texts for lupdate; they are translated where they are shown.
const Description Descriptions[] = {
    {Unreachable, QT_TRANSLATE_NOOP("EngineErrors", "The update server of %1 cannot be reached."),
     QT_TRANSLATE_NOOP("EngineErrors", "Check your internet connection. The launcher tries again at its next check.")},
    {ServerRefused, QT_TRANSLATE_NOOP("EngineErrors", "The update server of %1 refused the request."),
     QT_TRANSLATE_NOOP("EngineErrors", "Try again later. If it persists, the server may be down for maintenance.")},
    {BadSignature, QT_TRANSLATE_NOOP("EngineErrors", "The release of %1 offered by the server is not signed correctly."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing was installed. Do not use this server until its publisher has fixed it.")},
    {UntrustedKey, QT_TRANSLATE_NOOP("EngineErrors", "The release of %1 is signed by an unknown publisher."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing was installed. Check the address of the update server.")},
    {OlderRelease, QT_TRANSLATE_NOOP("EngineErrors", "The server offers an older release of %1 than the one already accepted."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing was changed. Someone may be serving an outdated copy; try again later.")},
    {ExpiredRelease, QT_TRANSLATE_NOOP("EngineErrors", "The release information of %1 on the server has expired."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing was changed. The publisher must publish again; contact support if it persists.")},
    {TamperedData, QT_TRANSLATE_NOOP("EngineErrors", "Data of %1 received from the server do not match the signed release."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing damaged was installed. Try again later; contact support if it persists.")},
    {PathOutsideDirectory, QT_TRANSLATE_NOOP("EngineErrors", "The release of %1 would write outside its folder."),
     QT_TRANSLATE_NOOP("EngineErrors", "Nothing was installed. Do not use this release; contact support.")},
    {NoPublicKey, QT_TRANSLATE_NOOP("EngineErrors", "%1 has no publisher key in the launcher's configuration."),
     QT_TRANSLATE_NOOP("EngineErrors", "Add the publisher's public key to the configuration script (projects.<id>.keys).")},
    {UnknownChannel, QT_TRANSLATE_NOOP("EngineErrors", "The update server of %1 has no such release channel."),
     QT_TRANSLATE_NOOP("EngineErrors", "Choose another channel in the settings.")},
    {DiskFull, QT_TRANSLATE_NOOP("EngineErrors", "There is not enough disk space for %1."),
     QT_TRANSLATE_NOOP("EngineErrors", "Free some space, or choose another install folder, and try again.")},
    {NotWritable, QT_TRANSLATE_NOOP("EngineErrors", "The launcher may not write to the install folder of %1."),
     QT_TRANSLATE_NOOP("EngineErrors", "Choose an install folder you may write to.")},
    {DirectoryBusy, QT_TRANSLATE_NOOP("EngineErrors", "Another program is working on the install folder of %1."),
     QT_TRANSLATE_NOOP("EngineErrors", "Wait for it to finish, then try again.")},
    {NotInstalled, QT_TRANSLATE_NOOP("EngineErrors", "%1 is not installed."), QT_TRANSLATE_NOOP("EngineErrors", "Install it first.")},
    {BrokenRecords, QT_TRANSLATE_NOOP("EngineErrors", "The launcher's records of %1 are unreadable."),
     QT_TRANSLATE_NOOP("EngineErrors", "Uninstall the game and install it again.")},
    {DamagedFiles, QT_TRANSLATE_NOOP("EngineErrors", "Some files of %1 are damaged or missing."), QT_TRANSLATE_NOOP("EngineErrors", "Repair the game.")},
    {NothingToRollBack, QT_TRANSLATE_NOOP("EngineErrors", "There is no earlier version of %1 to go back to."),
     QT_TRANSLATE_NOOP("EngineErrors", "Only the version before the last update is kept.")},
    {FileError, QT_TRANSLATE_NOOP("EngineErrors", "A file of %1 could not be read or written."),
     QT_TRANSLATE_NOOP("EngineErrors", "Check the disk, then try again. The details name the file.")},
    {BadSettings, QT_TRANSLATE_NOOP("EngineErrors", "The settings of %1 are incomplete."),
     QT_TRANSLATE_NOOP("EngineErrors", "The details say which setting is missing or wrong.")},
    {GameDoesNotStart, QT_TRANSLATE_NOOP("EngineErrors", "%1 does not start."), QT_TRANSLATE_NOOP("EngineErrors", "Repair the game, then try again.")},
    {GameRunning, QT_TRANSLATE_NOOP("EngineErrors", "%1 is running: it cannot be changed now."),
     QT_TRANSLATE_NOOP("EngineErrors", "Quit the game; the launcher goes on by itself.")},
};

Kind kindOf(const tvl::vantor::UpdateResult& result)
{
    switch (result.error) {
    case ErrorCode::NetworkError:
        return Unreachable;
    case ErrorCode::ServerError:
        // A channel without a release record: its record's address answers 404.
        return result.errorString.contains(QRegularExpression(QStringLiteral("answered 404 .* for \\S*/channels/\\S+\\.json")))
            ? UnknownChannel
            : ServerRefused;
    case ErrorCode::BadSignature:
        return BadSignature;
    case ErrorCode::UnknownKey:
        return UntrustedKey;
    case ErrorCode::RollbackAttack:
        return OlderRelease;
    case ErrorCode::ExpiredRecord:
        return ExpiredRelease;
    case ErrorCode::HashMismatch:
        return TamperedData;
    case ErrorCode::PathEscape:
        return PathOutsideDirectory;
    case ErrorCode::DiskFull:
        return DiskFull;
    case ErrorCode::PermissionDenied:
        return NotWritable;
    case ErrorCode::Locked:
        return DirectoryBusy;
    case ErrorCode::NotInstalled:
        return NotInstalled;
    case ErrorCode::CorruptState:
        return BrokenRecords;
    case ErrorCode::Damaged:
        return DamagedFiles;
    case ErrorCode::NoRollback:
        return NothingToRollBack;
    case ErrorCode::InvalidArguments:
        return BadSettings;
    default:
        return FileError;
    }
}

} // namespace

UpdaterError make(Kind kind, const QString& projectName, const QString& details)
{
    const unsigned int category = kind >= DiskFull ? UpdaterError::InstallerErrorCategory : UpdaterError::UpdateErrorCategory;
    const Description* description = std::find_if(std::begin(Descriptions), std::end(Descriptions),
                                                  [kind](const Description& entry) { return entry.kind == kind; });
    const QString text = QCoreApplication::translate("EngineErrors", description->text).arg(projectName);
    const QString action = QCoreApplication::translate("EngineErrors", description->action);
    const QString html = QStringLiteral("<p><b>%1</b></p><p>%2</p>").arg(text.toHtmlEscaped(), action.toHtmlEscaped());
    return UpdaterError(new DetailedUpdaterError(category | unsigned(kind), text + QLatin1Char(' ') + action, html, details));
}

UpdaterError fromResult(const QString& projectName, const tvl::vantor::UpdateResult& result)
{
    if (result.success || result.error == ErrorCode::Cancelled)
        return UpdaterError();
    return make(kindOf(result), projectName, result.errorString);
}

} // namespace EngineErrors
