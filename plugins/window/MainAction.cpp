#include "MainAction.h"

#include <QtCore/QCoreApplication>

using tvl::updater::IUpdateEngine;

MainAction mainActionFor(IUpdateEngine::UpdateState state, bool paused)
{
    if (state == IUpdateEngine::Initializing)
        return MainAction::Wait;
    // A running game blocks everything, even what is pending.
    if (state.testFlag(IUpdateEngine::UpdateBlockedByProcess))
        return MainAction::Running;
    if (state.testFlag(IUpdateEngine::Updating))
        return MainAction::Cancel;
    const bool executable = state.testFlag(IUpdateEngine::Executable);
    if (state.testFlag(IUpdateEngine::CheckingUpdates))
        return executable ? MainAction::Play : MainAction::Wait;
    if (state.testFlag(IUpdateEngine::UpdatePending)) {
        if (paused)
            return MainAction::Resume;
        return executable ? MainAction::Update : MainAction::Install;
    }
    // Failed with nothing left to install: files are damaged or missing.
    if (state.testFlag(IUpdateEngine::UpdateFailed))
        return MainAction::Repair;
    if (executable)
        return MainAction::Play;
    return MainAction::Wait;
}

QString mainActionText(MainAction action)
{
    switch (action) {
    case MainAction::Install:
        return QCoreApplication::translate("MainAction", "Install");
    case MainAction::Update:
        return QCoreApplication::translate("MainAction", "Update");
    case MainAction::Resume:
        return QCoreApplication::translate("MainAction", "Resume");
    case MainAction::Play:
        return QCoreApplication::translate("MainAction", "Play");
    case MainAction::Repair:
        return QCoreApplication::translate("MainAction", "Repair");
    case MainAction::Cancel:
        return QCoreApplication::translate("MainAction", "Cancel");
    case MainAction::Running:
        return QCoreApplication::translate("MainAction", "Running");
    case MainAction::Wait:
        break;
    }
    return QCoreApplication::translate("MainAction", "Please wait");
}

const char* mainActionSlot(MainAction action)
{
    switch (action) {
    case MainAction::Install:
    case MainAction::Update:
        return "install";
    case MainAction::Resume:
        return "resume";
    case MainAction::Play:
        return "launch";
    case MainAction::Repair:
        return "repair";
    case MainAction::Cancel:
        return "pause";
    case MainAction::Running:
    case MainAction::Wait:
        break;
    }
    return nullptr;
}

QString stateText(IUpdateEngine::UpdateState state, const QString& installed, const QString& available)
{
    if (state == IUpdateEngine::Initializing)
        return QCoreApplication::translate("MainAction", "Not examined yet");
    if (state.testFlag(IUpdateEngine::UpdateBlockedByProcess))
        return QCoreApplication::translate("MainAction", "Running");
    if (state.testFlag(IUpdateEngine::Updating))
        return QCoreApplication::translate("MainAction", "Working on its files");
    if (state.testFlag(IUpdateEngine::CheckingUpdates))
        return QCoreApplication::translate("MainAction", "Checking for updates");
    if (state.testFlag(IUpdateEngine::UpdateFailed)) {
        return state.testFlag(IUpdateEngine::UpdatePending) ? QCoreApplication::translate("MainAction", "The last operation failed")
                                                            : QCoreApplication::translate("MainAction", "Damaged: repair it");
    }
    if (state.testFlag(IUpdateEngine::UpdatePending)) {
        if (installed.isEmpty())
            return QCoreApplication::translate("MainAction", "Not installed");
        return QCoreApplication::translate("MainAction", "Update %1 available").arg(available);
    }
    if (state.testFlag(IUpdateEngine::UpToDate))
        return QCoreApplication::translate("MainAction", "Up to date");
    return QCoreApplication::translate("MainAction", "Ready");
}
