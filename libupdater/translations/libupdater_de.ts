<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>Less than a minute</source>
        <translation>Weniger als eine Minute</translation>
    </message>
    <message>
        <source>Approximately %1 minute(s)</source>
        <translation>Ungefähr %1 Minute(n)</translation>
    </message>
    <message>
        <source>More than an hour</source>
        <translation>Mehr als eine Stunde</translation>
    </message>
    <message>
        <source>%1</source>
        <translation>%1</translation>
    </message>
    <message>
        <source>%1h%2m</source>
        <translation>%1 Std. %2 Min.</translation>
    </message>
    <message>
        <source>&lt; 1min</source>
        <translation>&lt; 1 Min.</translation>
    </message>
    <message>
        <source>%1 min(s)</source>
        <translation>%1 Min.</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
</context>
<context>
    <name>tvl::updater::UpdaterPluginInfo</name>
    <message>
        <source>it sets no &quot;name&quot;</source>
        <translation>es setzt keinen „name“</translation>
    </message>
    <message>
        <source>Cannot load %1: %2</source>
        <translation>%1 kann nicht geladen werden: %2</translation>
    </message>
    <message>
        <source>Its library %1 is already loaded as plugin %2.</source>
        <translation>Seine Bibliothek %1 ist bereits als Plugin %2 geladen.</translation>
    </message>
    <message>
        <source>%1 holds no plugin object (no class derived from UpdaterPlugin).</source>
        <translation>%1 enthält kein Plugin-Objekt (keine von UpdaterPlugin abgeleitete Klasse).</translation>
    </message>
</context>
<context>
    <name>tvl::updater::UpdaterPluginsManager</name>
    <message>
        <source>Initialisation failed</source>
        <translation>Initialisierung fehlgeschlagen</translation>
    </message>
    <message>
        <source>The application has encountered a problem while loading &apos;plugin %1&apos;.
If the problem persists, please contact our customers service.</source>
        <translation>Beim Laden von „Plugin %1“ ist ein Problem aufgetreten.
Wenn das Problem bestehen bleibt, wenden Sie sich bitte an unseren Kundendienst.</translation>
    </message>
    <message>
        <source>Terminate</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>%1 is shutting down...</source>
        <translation>%1 wird beendet …</translation>
    </message>
    <message>
        <source>Unloading %1</source>
        <translation>%1 wird entladen</translation>
    </message>
    <message>
        <source>the name %1 is already taken by %2</source>
        <translation>der Name %1 ist bereits von %2 belegt</translation>
    </message>
    <message>
        <source>Quarantined: it crashed the launcher while starting, twice in a row. It is tried again once its library changes, or when it is removed from the setting &quot;plugins.quarantine&quot;.</source>
        <translation>In Quarantäne: Es hat den Launcher beim Start zweimal hintereinander abstürzen lassen. Es wird erneut versucht, sobald sich seine Bibliothek ändert oder wenn es aus der Einstellung „plugins.quarantine“ entfernt wird.</translation>
    </message>
    <message>
        <source>It needs %1, which is not loaded.</source>
        <translation>Es benötigt %1, das nicht geladen ist.</translation>
    </message>
    <message>
        <source>Its init() failed.</source>
        <translation>Sein init() ist fehlgeschlagen.</translation>
    </message>
    <message>
        <source>Its init() failed: %1</source>
        <translation>Sein init() ist fehlgeschlagen: %1</translation>
    </message>
</context>
</TS>
