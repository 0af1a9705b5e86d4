<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>SettingsPlugin</name>
    <message>
        <source>The configuration file %1 does not exist.</source>
        <translation>Die Konfigurationsdatei %1 existiert nicht.</translation>
    </message>
    <message>
        <source>The configuration file %1 is not a regular file.</source>
        <translation>Die Konfigurationsdatei %1 ist keine gewöhnliche Datei.</translation>
    </message>
</context>
</TS>
