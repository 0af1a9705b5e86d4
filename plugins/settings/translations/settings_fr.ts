<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>SettingsPlugin</name>
    <message>
        <source>The configuration file %1 does not exist.</source>
        <translation>Le fichier de configuration %1 n&apos;existe pas.</translation>
    </message>
    <message>
        <source>The configuration file %1 is not a regular file.</source>
        <translation>Le fichier de configuration %1 n&apos;est pas un fichier ordinaire.</translation>
    </message>
</context>
</TS>
