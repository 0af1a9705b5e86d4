<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>DeveloperPanel</name>
    <message>
        <source>&amp;Log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Errors</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Remove error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Clear &amp;all errors</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Log</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Errors</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remove the selected error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remove all errors</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MainAction</name>
    <message>
        <source>Install</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Update</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Resume</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Play</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Repair</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Running</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please wait</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not examined yet</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Working on its files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Checking for updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The last operation failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Damaged: repair it</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not installed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Update %1 available</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Up to date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ready</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Checking</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Assembling files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verifying</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Finishing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Working</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>version %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Banner of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1: version %2 is installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Games</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;News</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Settings...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for &amp;updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Games</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>News</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check every game for updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Progress</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Progress details</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Trailer</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SettingsDialog</name>
    <message>
        <source>Settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Language:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Download &amp;limit:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No limit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> KiB/s</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Parallel &amp;connections:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install &amp;folder:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Browse...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Plugins:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Plugins switched on or off load or stay away from the next start on.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Developer mode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Closing the window keeps the launcher in the &amp;tray</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Language</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Download limit in KiB per second, 0 for no limit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Parallel connections</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install folder of the selected game</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose the install folder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Plugins to load</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Developer mode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close to tray</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close the settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install folder</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>WindowPlugin</name>
    <message>
        <source>&amp;Show the launcher</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Hide the launcher</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Check for updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is up to date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1 is installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 was not updated</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
