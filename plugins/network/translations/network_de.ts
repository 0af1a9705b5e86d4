<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>FileSink</name>
    <message>
        <source>Cannot write %1: %2</source>
        <translation>%1 kann nicht geschrieben werden: %2</translation>
    </message>
    <message>
        <source>Cannot move %1 to %2</source>
        <translation>%1 kann nicht nach %2 verschoben werden</translation>
    </message>
</context>
<context>
    <name>ManagedReply</name>
    <message>
        <source>Operation canceled</source>
        <translation>Vorgang abgebrochen</translation>
    </message>
    <message>
        <source>%1 changed while it was being fetched</source>
        <translation>%1 hat sich während des Herunterladens geändert</translation>
    </message>
    <message>
        <source>No data from %1 for %2 s</source>
        <translation>Seit %2 s keine Daten von %1</translation>
    </message>
    <message>
        <source>%1 ended after %2 of %3 bytes</source>
        <translation>%1 endete nach %2 von %3 Bytes</translation>
    </message>
</context>
</TS>
