<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>ConsolePlugin</name>
    <message>
        <source>updater %1 (%2) started</source>
        <translation>updater %1 (%2) gestartet</translation>
    </message>
    <message>
        <source>the previous run did not end in order</source>
        <translation>der letzte Lauf wurde nicht ordnungsgemäß beendet</translation>
    </message>
    <message numerus="yes">
        <source>quitting after %n second(s), as asked</source>
        <translation>
            <numerusform>Ende nach %n Sekunde, wie gewünscht</numerusform>
            <numerusform>Ende nach %n Sekunden, wie gewünscht</numerusform>
        </translation>
    </message>
    <message>
        <source>stopping</source>
        <translation>wird beendet</translation>
    </message>
    <message>
        <source>service offered: %1</source>
        <translation>angebotener Dienst: %1</translation>
    </message>
    <message>
        <source>setting changed: %1 = %2</source>
        <translation>Einstellung geändert: %1 = %2</translation>
    </message>
    <message>
        <source>system: %1, %2 cores, %3 MiB of memory</source>
        <translation>System: %1, %2 Kerne, %3 MiB Speicher</translation>
    </message>
    <message>
        <source>type &quot;help&quot; for the commands</source>
        <translation>„help“ eingeben für die Befehle</translation>
    </message>
    <message>
        <source>error %1: %2</source>
        <translation>Fehler %1: %2</translation>
    </message>
    <message>
        <source>link followed: %1</source>
        <translation>Link gefolgt: %1</translation>
    </message>
    <message>
        <source>question: %1 (answered %2: nobody to ask on the console)</source>
        <translation>Frage: %1 (Antwort %2: niemand auf der Konsole zu fragen)</translation>
    </message>
    <message>
        <source>yes</source>
        <translation>ja</translation>
    </message>
    <message>
        <source>no</source>
        <translation>nein</translation>
    </message>
    <message>
        <source>the last window was closed</source>
        <translation>das letzte Fenster wurde geschlossen</translation>
    </message>
    <message>
        <source>quitting, as asked</source>
        <translation>Ende, wie gewünscht</translation>
    </message>
    <message>
        <source>commands: quit, plugins, services, help</source>
        <translation>Befehle: quit, plugins, services, help</translation>
    </message>
    <message>
        <source>unknown command &quot;%1&quot;; type &quot;help&quot;</source>
        <translation>unbekannter Befehl „%1“; „help“ eingeben</translation>
    </message>
    <message>
        <source>plugins loaded: %1</source>
        <translation>geladene Plugins: %1</translation>
    </message>
    <message>
        <source>services: %1</source>
        <translation>Dienste: %1</translation>
    </message>
    <message>
        <source>none</source>
        <translation>keine</translation>
    </message>
    <message numerus="yes">
        <source>it ended while plugin %1 was starting (%n run(s) in a row)</source>
        <translation>
            <numerusform>er endete, während das Plugin %1 startete (%n Lauf in Folge)</numerusform>
            <numerusform>er endete, während das Plugin %1 startete (%n Läufe in Folge)</numerusform>
        </translation>
    </message>
</context>
</TS>
