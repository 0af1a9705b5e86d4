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
    <message>
        <source>games: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>EngineReport</name>
    <message>
        <source>checking</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>downloading</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>assembling files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>verifying</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>finishing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>working</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>every game is checked</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>not examined yet</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>running: changes wait for the game to end</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>working on its files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>checking for updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the last operation failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>damaged: repair it</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>not installed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>not installed (%1 available)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>version %1, update %2 available</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>version %1, up to date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>state %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> %1% of %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>, %1/s</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>, %n second(s) left</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message>
        <source>%1: done, version %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no update engine is loaded</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
