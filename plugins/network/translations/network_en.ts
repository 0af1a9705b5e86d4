<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>FileSink</name>
    <message>
        <source>Cannot write %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cannot move %1 to %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ManagedReply</name>
    <message>
        <source>Operation canceled</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 changed while it was being fetched</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No data from %1 for %2 s</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 ended after %2 of %3 bytes</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
