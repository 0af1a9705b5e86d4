<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>EngineErrors</name>
    <message>
        <source>The update server of %1 cannot be reached.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check your internet connection. The launcher tries again at its next check.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server of %1 refused the request.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Try again later. If it persists, the server may be down for maintenance.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The release of %1 offered by the server is not signed correctly.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this server until its publisher has fixed it.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The release of %1 is signed by an unknown publisher.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing was installed. Check the address of the update server.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The server offers an older release of %1 than the one already accepted.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing was changed. Someone may be serving an outdated copy; try again later.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The release information of %1 on the server has expired.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing was changed. The publisher must publish again; contact support if it persists.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Data of %1 received from the server do not match the signed release.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing damaged was installed. Try again later; contact support if it persists.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The release of %1 would write outside its folder.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this release; contact support.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 has no publisher key in the launcher&apos;s configuration.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Add the publisher&apos;s public key to the configuration script (projects.&lt;id&gt;.keys).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server of %1 has no such release channel.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose another channel in the settings.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is not enough disk space for %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Free some space, or choose another install folder, and try again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The launcher may not write to the install folder of %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose an install folder you may write to.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Another program is working on the install folder of %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Wait for it to finish, then try again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is not installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install it first.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The launcher&apos;s records of %1 are unreadable.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uninstall the game and install it again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Some files of %1 are damaged or missing.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Repair the game.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no earlier version of %1 to go back to.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Only the version before the last update is kept.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A file of %1 could not be read or written.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check the disk, then try again. The details name the file.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The settings of %1 are incomplete.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The details say which setting is missing or wrong.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 does not start.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Repair the game, then try again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is running: it cannot be changed now.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit the game; the launcher goes on by itself.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>GameProcess</name>
    <message>
        <source>%1 is not an executable file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 cannot be started: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ProjectConfig</name>
    <message>
        <source>projects.%1.url does not name a repository.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>projects.%1.dir names no install directory.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>projects.%1.keys: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>projects.%1.keys lists no public key in the configuration script: releases cannot be verified.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
