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
</context>
</TS>
