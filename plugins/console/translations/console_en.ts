<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>ConsolePlugin</name>
    <message>
        <source>updater %1 (%2) started</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the previous run did not end in order</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>quitting after %n second(s), as asked</source>
        <translation>
            <numerusform>quitting after %n second, as asked</numerusform>
            <numerusform>quitting after %n seconds, as asked</numerusform>
        </translation>
    </message>
    <message>
        <source>stopping</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>service offered: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>setting changed: %1 = %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>system: %1, %2 cores, %3 MiB of memory</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>type &quot;help&quot; for the commands</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>error %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>link followed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>question: %1 (answered %2: nobody to ask on the console)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>yes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the last window was closed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>quitting, as asked</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>commands: quit, plugins, services, help</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>unknown command &quot;%1&quot;; type &quot;help&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>plugins loaded: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>services: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>none</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>it ended while plugin %1 was starting (%n run(s) in a row)</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
</context>
</TS>
