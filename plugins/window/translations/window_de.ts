<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>DeveloperPanel</name>
    <message>
        <source>&amp;Log</source>
        <translation>&amp;Protokoll</translation>
    </message>
    <message>
        <source>&amp;Errors</source>
        <translation>&amp;Fehler</translation>
    </message>
    <message>
        <source>&amp;Remove error</source>
        <translation>Fehler &amp;entfernen</translation>
    </message>
    <message>
        <source>Clear &amp;all errors</source>
        <translation>&amp;Alle Fehler entfernen</translation>
    </message>
    <message>
        <source>Log</source>
        <translation>Protokoll</translation>
    </message>
    <message>
        <source>Errors</source>
        <translation>Fehler</translation>
    </message>
    <message>
        <source>Remove the selected error</source>
        <translation>Den gewählten Fehler entfernen</translation>
    </message>
    <message>
        <source>Remove all errors</source>
        <translation>Alle Fehler entfernen</translation>
    </message>
</context>
<context>
    <name>MainAction</name>
    <message>
        <source>Install</source>
        <translation>Installieren</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Aktualisieren</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Fortsetzen</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Spielen</translation>
    </message>
    <message>
        <source>Repair</source>
        <translation>Reparieren</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Running</source>
        <translation>Läuft</translation>
    </message>
    <message>
        <source>Please wait</source>
        <translation>Bitte warten</translation>
    </message>
    <message>
        <source>Not examined yet</source>
        <translation>Noch nicht geprüft</translation>
    </message>
    <message>
        <source>Working on its files</source>
        <translation>Arbeitet an den Dateien</translation>
    </message>
    <message>
        <source>Checking for updates</source>
        <translation>Sucht nach Aktualisierungen</translation>
    </message>
    <message>
        <source>The last operation failed</source>
        <translation>Der letzte Vorgang ist fehlgeschlagen</translation>
    </message>
    <message>
        <source>Damaged: repair it</source>
        <translation>Beschädigt: bitte reparieren</translation>
    </message>
    <message>
        <source>Not installed</source>
        <translation>Nicht installiert</translation>
    </message>
    <message>
        <source>Update %1 available</source>
        <translation>Aktualisierung %1 verfügbar</translation>
    </message>
    <message>
        <source>Up to date</source>
        <translation>Aktuell</translation>
    </message>
    <message>
        <source>Ready</source>
        <translation>Bereit</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Checking</source>
        <translation>Prüft den Server</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>Lädt herunter</translation>
    </message>
    <message>
        <source>Assembling files</source>
        <translation>Setzt Dateien zusammen</translation>
    </message>
    <message>
        <source>Verifying</source>
        <translation>Prüft</translation>
    </message>
    <message>
        <source>Finishing</source>
        <translation>Schließt ab</translation>
    </message>
    <message>
        <source>Working</source>
        <translation>Arbeitet</translation>
    </message>
    <message>
        <source>version %1</source>
        <translation>Version %1</translation>
    </message>
    <message>
        <source>Banner of %1</source>
        <translation>Banner von %1</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 von %2</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/s</translation>
    </message>
    <message>
        <source>%1: version %2 is installed.</source>
        <translation>%1: Version %2 ist installiert.</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation>Spiele-Launcher</translation>
    </message>
    <message>
        <source>&amp;Games</source>
        <translation>&amp;Spiele</translation>
    </message>
    <message>
        <source>&amp;News</source>
        <translation>&amp;Neuigkeiten</translation>
    </message>
    <message>
        <source>&amp;Settings...</source>
        <translation>&amp;Einstellungen...</translation>
    </message>
    <message>
        <source>Check for &amp;updates</source>
        <translation>Nach &amp;Aktualisierungen suchen</translation>
    </message>
    <message>
        <source>Games</source>
        <translation>Spiele</translation>
    </message>
    <message>
        <source>News</source>
        <translation>Neuigkeiten</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>Check every game for updates</source>
        <translation>Jedes Spiel auf Aktualisierungen prüfen</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Fortschritt</translation>
    </message>
    <message>
        <source>Progress details</source>
        <translation>Einzelheiten zum Fortschritt</translation>
    </message>
    <message>
        <source>Trailer</source>
        <translation>Trailer</translation>
    </message>
</context>
<context>
    <name>SettingsDialog</name>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>&amp;Language:</source>
        <translation>&amp;Sprache:</translation>
    </message>
    <message>
        <source>Download &amp;limit:</source>
        <translation>Download-&amp;Grenze:</translation>
    </message>
    <message>
        <source>No limit</source>
        <translation>Keine Grenze</translation>
    </message>
    <message>
        <source> KiB/s</source>
        <translation> KiB/s</translation>
    </message>
    <message>
        <source>Parallel &amp;connections:</source>
        <translation>Gleichzeitige &amp;Verbindungen:</translation>
    </message>
    <message>
        <source>Install &amp;folder:</source>
        <translation>Installations&amp;ordner:</translation>
    </message>
    <message>
        <source>&amp;Browse...</source>
        <translation>&amp;Durchsuchen...</translation>
    </message>
    <message>
        <source>&amp;Plugins:</source>
        <translation>&amp;Plugins:</translation>
    </message>
    <message>
        <source>Plugins switched on or off load or stay away from the next start on.</source>
        <translation>Ein- oder ausgeschaltete Plugins gelten ab dem nächsten Start.</translation>
    </message>
    <message>
        <source>&amp;Developer mode</source>
        <translation>&amp;Entwicklermodus</translation>
    </message>
    <message>
        <source>Closing the window keeps the launcher in the &amp;tray</source>
        <translation>Schließen des Fensters lässt den Launcher im &amp;Infobereich</translation>
    </message>
    <message>
        <source>Language</source>
        <translation>Sprache</translation>
    </message>
    <message>
        <source>Download limit in KiB per second, 0 for no limit</source>
        <translation>Download-Grenze in KiB pro Sekunde, 0 für keine</translation>
    </message>
    <message>
        <source>Parallel connections</source>
        <translation>Gleichzeitige Verbindungen</translation>
    </message>
    <message>
        <source>Install folder of the selected game</source>
        <translation>Installationsordner des gewählten Spiels</translation>
    </message>
    <message>
        <source>Choose the install folder</source>
        <translation>Installationsordner wählen</translation>
    </message>
    <message>
        <source>Plugins to load</source>
        <translation>Zu ladende Plugins</translation>
    </message>
    <message>
        <source>Developer mode</source>
        <translation>Entwicklermodus</translation>
    </message>
    <message>
        <source>Close to tray</source>
        <translation>In den Infobereich schließen</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Close the settings</source>
        <translation>Einstellungen schließen</translation>
    </message>
    <message>
        <source>Install folder</source>
        <translation>Installationsordner</translation>
    </message>
</context>
<context>
    <name>WindowPlugin</name>
    <message>
        <source>&amp;Show the launcher</source>
        <translation>Launcher &amp;anzeigen</translation>
    </message>
    <message>
        <source>&amp;Hide the launcher</source>
        <translation>Launcher &amp;verbergen</translation>
    </message>
    <message>
        <source>&amp;Check for updates</source>
        <translation>Nach Aktualisierungen &amp;suchen</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation>Spiele-Launcher</translation>
    </message>
    <message>
        <source>%1 is up to date</source>
        <translation>%1 ist aktuell</translation>
    </message>
    <message>
        <source>Version %1 is installed.</source>
        <translation>Version %1 ist installiert.</translation>
    </message>
    <message>
        <source>%1 was not updated</source>
        <translation>%1 wurde nicht aktualisiert</translation>
    </message>
    <message>
        <source>Error %1</source>
        <translation>Fehler %1</translation>
    </message>
    <message>
        <source>Show</source>
        <translation>Anzeigen</translation>
    </message>
</context>
</TS>
