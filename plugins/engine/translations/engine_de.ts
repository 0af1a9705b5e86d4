<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>EngineErrors</name>
    <message>
        <source>The update server of %1 cannot be reached.</source>
        <translation>Der Update-Server von %1 ist nicht erreichbar.</translation>
    </message>
    <message>
        <source>Check your internet connection. The launcher tries again at its next check.</source>
        <translation>Prüfen Sie Ihre Internetverbindung. Der Launcher versucht es bei der nächsten Prüfung erneut.</translation>
    </message>
    <message>
        <source>The update server of %1 refused the request.</source>
        <translation>Der Update-Server von %1 hat die Anfrage abgelehnt.</translation>
    </message>
    <message>
        <source>Try again later. If it persists, the server may be down for maintenance.</source>
        <translation>Versuchen Sie es später erneut. Bleibt es dabei, wird der Server vielleicht gewartet.</translation>
    </message>
    <message>
        <source>The release of %1 offered by the server is not signed correctly.</source>
        <translation>Die vom Server angebotene Version von %1 ist nicht korrekt signiert.</translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this server until its publisher has fixed it.</source>
        <translation>Es wurde nichts installiert. Nutzen Sie diesen Server erst wieder, wenn sein Herausgeber ihn repariert hat.</translation>
    </message>
    <message>
        <source>The release of %1 is signed by an unknown publisher.</source>
        <translation>Die Version von %1 ist von einem unbekannten Herausgeber signiert.</translation>
    </message>
    <message>
        <source>Nothing was installed. Check the address of the update server.</source>
        <translation>Es wurde nichts installiert. Prüfen Sie die Adresse des Update-Servers.</translation>
    </message>
    <message>
        <source>The server offers an older release of %1 than the one already accepted.</source>
        <translation>Der Server bietet eine ältere Version von %1 an als die bereits akzeptierte.</translation>
    </message>
    <message>
        <source>Nothing was changed. Someone may be serving an outdated copy; try again later.</source>
        <translation>Es wurde nichts geändert. Vielleicht liefert jemand eine veraltete Kopie aus; versuchen Sie es später erneut.</translation>
    </message>
    <message>
        <source>The release information of %1 on the server has expired.</source>
        <translation>Die Versionsangaben von %1 auf dem Server sind abgelaufen.</translation>
    </message>
    <message>
        <source>Nothing was changed. The publisher must publish again; contact support if it persists.</source>
        <translation>Es wurde nichts geändert. Der Herausgeber muss neu veröffentlichen; wenden Sie sich an den Support, wenn es dabei bleibt.</translation>
    </message>
    <message>
        <source>Data of %1 received from the server do not match the signed release.</source>
        <translation>Vom Server empfangene Daten von %1 passen nicht zur signierten Version.</translation>
    </message>
    <message>
        <source>Nothing damaged was installed. Try again later; contact support if it persists.</source>
        <translation>Es wurde nichts Beschädigtes installiert. Versuchen Sie es später erneut; wenden Sie sich an den Support, wenn es dabei bleibt.</translation>
    </message>
    <message>
        <source>The release of %1 would write outside its folder.</source>
        <translation>Die Version von %1 würde außerhalb ihres Ordners schreiben.</translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this release; contact support.</source>
        <translation>Es wurde nichts installiert. Verwenden Sie diese Version nicht; wenden Sie sich an den Support.</translation>
    </message>
    <message>
        <source>%1 has no publisher key in the launcher&apos;s configuration.</source>
        <translation>Für %1 gibt es keinen Herausgeberschlüssel in der Konfiguration des Launchers.</translation>
    </message>
    <message>
        <source>Add the publisher&apos;s public key to the configuration script (projects.&lt;id&gt;.keys).</source>
        <translation>Tragen Sie den öffentlichen Schlüssel des Herausgebers in das Konfigurationsskript ein (projects.&lt;id&gt;.keys).</translation>
    </message>
    <message>
        <source>The update server of %1 has no such release channel.</source>
        <translation>Der Update-Server von %1 hat keinen solchen Kanal.</translation>
    </message>
    <message>
        <source>Choose another channel in the settings.</source>
        <translation>Wählen Sie in den Einstellungen einen anderen Kanal.</translation>
    </message>
    <message>
        <source>There is not enough disk space for %1.</source>
        <translation>Es ist nicht genug Speicherplatz für %1 frei.</translation>
    </message>
    <message>
        <source>Free some space, or choose another install folder, and try again.</source>
        <translation>Geben Sie Speicherplatz frei oder wählen Sie einen anderen Installationsordner und versuchen Sie es erneut.</translation>
    </message>
    <message>
        <source>The launcher may not write to the install folder of %1.</source>
        <translation>Der Launcher darf nicht in den Installationsordner von %1 schreiben.</translation>
    </message>
    <message>
        <source>Choose an install folder you may write to.</source>
        <translation>Wählen Sie einen Installationsordner, in den Sie schreiben dürfen.</translation>
    </message>
    <message>
        <source>Another program is working on the install folder of %1.</source>
        <translation>Ein anderes Programm arbeitet am Installationsordner von %1.</translation>
    </message>
    <message>
        <source>Wait for it to finish, then try again.</source>
        <translation>Warten Sie, bis es fertig ist, und versuchen Sie es dann erneut.</translation>
    </message>
    <message>
        <source>%1 is not installed.</source>
        <translation>%1 ist nicht installiert.</translation>
    </message>
    <message>
        <source>Install it first.</source>
        <translation>Installieren Sie es zuerst.</translation>
    </message>
    <message>
        <source>The launcher&apos;s records of %1 are unreadable.</source>
        <translation>Die Aufzeichnungen des Launchers zu %1 sind unlesbar.</translation>
    </message>
    <message>
        <source>Uninstall the game and install it again.</source>
        <translation>Deinstallieren Sie das Spiel und installieren Sie es neu.</translation>
    </message>
    <message>
        <source>Some files of %1 are damaged or missing.</source>
        <translation>Einige Dateien von %1 sind beschädigt oder fehlen.</translation>
    </message>
    <message>
        <source>Repair the game.</source>
        <translation>Reparieren Sie das Spiel.</translation>
    </message>
    <message>
        <source>There is no earlier version of %1 to go back to.</source>
        <translation>Es gibt keine frühere Version von %1, zu der zurückgekehrt werden kann.</translation>
    </message>
    <message>
        <source>Only the version before the last update is kept.</source>
        <translation>Nur die Version vor dem letzten Update wird aufbewahrt.</translation>
    </message>
    <message>
        <source>A file of %1 could not be read or written.</source>
        <translation>Eine Datei von %1 konnte nicht gelesen oder geschrieben werden.</translation>
    </message>
    <message>
        <source>Check the disk, then try again. The details name the file.</source>
        <translation>Prüfen Sie den Datenträger und versuchen Sie es erneut. Die Details nennen die Datei.</translation>
    </message>
    <message>
        <source>The settings of %1 are incomplete.</source>
        <translation>Die Einstellungen von %1 sind unvollständig.</translation>
    </message>
    <message>
        <source>The details say which setting is missing or wrong.</source>
        <translation>Die Details nennen die fehlende oder falsche Einstellung.</translation>
    </message>
    <message>
        <source>%1 does not start.</source>
        <translation>%1 startet nicht.</translation>
    </message>
    <message>
        <source>Repair the game, then try again.</source>
        <translation>Reparieren Sie das Spiel und versuchen Sie es erneut.</translation>
    </message>
    <message>
        <source>%1 is running: it cannot be changed now.</source>
        <translation>%1 läuft: Es kann jetzt nicht geändert werden.</translation>
    </message>
    <message>
        <source>Quit the game; the launcher goes on by itself.</source>
        <translation>Beenden Sie das Spiel; der Launcher macht von selbst weiter.</translation>
    </message>
</context>
<context>
    <name>GameProcess</name>
    <message>
        <source>%1 is not an executable file</source>
        <translation>%1 ist keine ausführbare Datei</translation>
    </message>
    <message>
        <source>%1 cannot be started: %2</source>
        <translation>%1 kann nicht gestartet werden: %2</translation>
    </message>
</context>
<context>
    <name>ProjectConfig</name>
    <message>
        <source>projects.%1.url does not name a repository.</source>
        <translation>projects.%1.url nennt kein Repository.</translation>
    </message>
    <message>
        <source>projects.%1.dir names no install directory.</source>
        <translation>projects.%1.dir nennt keinen Installationsordner.</translation>
    </message>
    <message>
        <source>projects.%1.keys: %2</source>
        <translation>projects.%1.keys: %2</translation>
    </message>
    <message>
        <source>projects.%1.keys lists no public key in the configuration script: releases cannot be verified.</source>
        <translation>projects.%1.keys nennt im Konfigurationsskript keinen öffentlichen Schlüssel: Versionen können nicht geprüft werden.</translation>
    </message>
</context>
</TS>
