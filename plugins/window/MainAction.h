#pragma once

#include <libupdater/IUpdateEngine.h>

#include <QtCore/QString>

/// What the main button does for a project in a given state.
enum class MainAction {
    Wait,     ///< nothing to do yet (not examined, or checking a game that is not installed)
    Install,
    Update,
    Resume,   ///< an install or update was paused
    Play,
    Repair,
    Cancel,   ///< pauses what runs, keeping what was fetched
    Running   ///< the game runs: nothing may change its files
};

/// The action for `state` (of the engine's state table); `paused` when the last install or update was paused.
MainAction mainActionFor(tvl::updater::IUpdateEngine::UpdateState state, bool paused);
/// The button's text, translated.
QString mainActionText(MainAction action);
/// The engine plugin's slot that does it; null for the actions that only wait.
const char* mainActionSlot(MainAction action);
/// The state of a project in words, for the project list; `installed`/`available` are versions.
QString stateText(tvl::updater::IUpdateEngine::UpdateState state, const QString& installed, const QString& available);
