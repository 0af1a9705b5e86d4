<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>Less than a minute</source>
        <translation>Moins d&apos;une minute</translation>
    </message>
    <message>
        <source>Approximately %1 minute(s)</source>
        <translation>Environ %1 minute(s)</translation>
    </message>
    <message>
        <source>More than an hour</source>
        <translation>Plus d&apos;une heure</translation>
    </message>
    <message>
        <source>%1</source>
        <translation>%1</translation>
    </message>
    <message>
        <source>%1h%2m</source>
        <translation>%1 h %2 min</translation>
    </message>
    <message>
        <source>&lt; 1min</source>
        <translation>&lt; 1 min</translation>
    </message>
    <message>
        <source>%1 min(s)</source>
        <translation>%1 min</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Quitter</translation>
    </message>
</context>
<context>
    <name>tvl::updater::UpdaterPluginsManager</name>
    <message>
        <source>Initialisation failed</source>
        <translation>Échec de l&apos;initialisation</translation>
    </message>
    <message>
        <source>The application has encountered a problem while loading &apos;plugin %1&apos;.
If the problem persists, please contact our customers service.</source>
        <translation>L&apos;application a rencontré un problème en chargeant le « plugin %1 ».
Si le problème persiste, veuillez contacter notre service clients.</translation>
    </message>
    <message>
        <source>Terminate</source>
        <translation>Arrêter</translation>
    </message>
    <message>
        <source>%1 is shutting down...</source>
        <translation>%1 se ferme…</translation>
    </message>
    <message>
        <source>Unloading %1</source>
        <translation>Déchargement de %1</translation>
    </message>
</context>
</TS>
