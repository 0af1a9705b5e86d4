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
    <message>
        <source>games: %1</source>
        <translation>Spiele: %1</translation>
    </message>
</context>
<context>
    <name>EngineReport</name>
    <message>
        <source>checking</source>
        <translation>Prüfung</translation>
    </message>
    <message>
        <source>downloading</source>
        <translation>Herunterladen</translation>
    </message>
    <message>
        <source>assembling files</source>
        <translation>Dateien werden zusammengesetzt</translation>
    </message>
    <message>
        <source>verifying</source>
        <translation>Überprüfung</translation>
    </message>
    <message>
        <source>finishing</source>
        <translation>Abschluss</translation>
    </message>
    <message>
        <source>working</source>
        <translation>in Arbeit</translation>
    </message>
    <message>
        <source>every game is checked</source>
        <translation>alle Spiele sind geprüft</translation>
    </message>
    <message>
        <source>not examined yet</source>
        <translation>noch nicht untersucht</translation>
    </message>
    <message>
        <source>running: changes wait for the game to end</source>
        <translation>läuft: Änderungen warten auf das Ende des Spiels</translation>
    </message>
    <message>
        <source>working on its files</source>
        <translation>arbeitet an seinen Dateien</translation>
    </message>
    <message>
        <source>checking for updates</source>
        <translation>sucht nach Updates</translation>
    </message>
    <message>
        <source>the last operation failed</source>
        <translation>der letzte Vorgang ist fehlgeschlagen</translation>
    </message>
    <message>
        <source>damaged: repair it</source>
        <translation>beschädigt: bitte reparieren</translation>
    </message>
    <message>
        <source>not installed</source>
        <translation>nicht installiert</translation>
    </message>
    <message>
        <source>not installed (%1 available)</source>
        <translation>nicht installiert (%1 verfügbar)</translation>
    </message>
    <message>
        <source>version %1, update %2 available</source>
        <translation>Version %1, Update %2 verfügbar</translation>
    </message>
    <message>
        <source>version %1, up to date</source>
        <translation>Version %1, aktuell</translation>
    </message>
    <message>
        <source>state %1</source>
        <translation>Zustand %1</translation>
    </message>
    <message>
        <source> %1% of %2</source>
        <translation> %1 % von %2</translation>
    </message>
    <message>
        <source>, %1/s</source>
        <translation>, %1/s</translation>
    </message>
    <message numerus="yes">
        <source>, %n second(s) left</source>
        <translation>
            <numerusform>, noch %n Sekunde</numerusform>
            <numerusform>, noch %n Sekunden</numerusform>
        </translation>
    </message>
    <message>
        <source>%1: done, version %2</source>
        <translation>%1: fertig, Version %2</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>no update engine is loaded</source>
        <translation>kein Update-Modul geladen</translation>
    </message>
</context>
</TS>
