<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>Less than a minute</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Approximately %1 minute(s)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>More than an hour</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1h%2m</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&lt; 1min</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 min(s)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>tvl::updater::UpdaterPluginInfo</name>
    <message>
        <source>it sets no &quot;name&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cannot load %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Its library %1 is already loaded as plugin %2.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 holds no plugin object (no class derived from UpdaterPlugin).</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>tvl::updater::UpdaterPluginsManager</name>
    <message>
        <source>Initialisation failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The application has encountered a problem while loading &apos;plugin %1&apos;.
If the problem persists, please contact our customers service.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Terminate</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is shutting down...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Unloading %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the name %1 is already taken by %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quarantined: it crashed the launcher while starting, twice in a row. It is tried again once its library changes, or when it is removed from the setting &quot;plugins.quarantine&quot;.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>It needs %1, which is not loaded.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Its init() failed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Its init() failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
