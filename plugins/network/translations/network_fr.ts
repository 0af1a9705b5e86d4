<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>FileSink</name>
    <message>
        <source>Cannot write %1: %2</source>
        <translation>Impossible d'écrire %1 : %2</translation>
    </message>
    <message>
        <source>Cannot move %1 to %2</source>
        <translation>Impossible de déplacer %1 vers %2</translation>
    </message>
</context>
<context>
    <name>ManagedReply</name>
    <message>
        <source>Operation canceled</source>
        <translation>Opération annulée</translation>
    </message>
    <message>
        <source>%1 changed while it was being fetched</source>
        <translation>%1 a changé pendant son téléchargement</translation>
    </message>
    <message>
        <source>No data from %1 for %2 s</source>
        <translation>Aucune donnée de %1 depuis %2 s</translation>
    </message>
    <message>
        <source>%1 ended after %2 of %3 bytes</source>
        <translation>%1 s'est arrêté après %2 octets sur %3</translation>
    </message>
</context>
</TS>
