<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>SettingsPlugin</name>
    <message>
        <source>The configuration file %1 does not exist.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The configuration file %1 is not a regular file.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
