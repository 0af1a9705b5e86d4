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
</context>
</TS>
