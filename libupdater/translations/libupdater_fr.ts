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
    <name>tvl::updater::UpdaterPluginInfo</name>
    <message>
        <source>it sets no &quot;name&quot;</source>
        <translation>il ne définit pas de « name »</translation>
    </message>
    <message>
        <source>Cannot load %1: %2</source>
        <translation>Impossible de charger %1 : %2</translation>
    </message>
    <message>
        <source>Its library %1 is already loaded as plugin %2.</source>
        <translation>Sa bibliothèque %1 est déjà chargée comme module %2.</translation>
    </message>
    <message>
        <source>%1 holds no plugin object (no class derived from UpdaterPlugin).</source>
        <translation>%1 ne contient aucun objet de module (aucune classe dérivée d&apos;UpdaterPlugin).</translation>
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
    <message>
        <source>the name %1 is already taken by %2</source>
        <translation>le nom %1 est déjà pris par %2</translation>
    </message>
    <message>
        <source>Quarantined: it crashed the launcher while starting, twice in a row. It is tried again once its library changes, or when it is removed from the setting &quot;plugins.quarantine&quot;.</source>
        <translation>En quarantaine : il a fait planter le lanceur au démarrage, deux fois de suite. Il sera réessayé quand sa bibliothèque changera, ou quand il sera retiré du paramètre « plugins.quarantine ».</translation>
    </message>
    <message>
        <source>It needs %1, which is not loaded.</source>
        <translation>Il a besoin de %1, qui n&apos;est pas chargé.</translation>
    </message>
    <message>
        <source>Its init() failed.</source>
        <translation>Son init() a échoué.</translation>
    </message>
    <message>
        <source>Its init() failed: %1</source>
        <translation>Son init() a échoué : %1</translation>
    </message>
</context>
</TS>
