<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>InstallerWindow</name>
    <message>
        <source>%@ Installer</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>This will install %@ on your computer.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Destination:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Help</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Quillet</name>
    <message>
        <source>Authorized copying failed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not delete existing copy.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Installation failed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1$@ cannot be running during the installation.<byte value="xd"/>Quit %1$@, then click &quot;Install&quot; again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Try installing %1$@ manually by copying it to the Applications folder.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%@ was successfully installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>missing source path</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>missing program name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>missing product signature</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Install</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Continue</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Go Back</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1$@ %2$@ cannot be installed on this computer because it requires macOS %3$@ or newer.</source>
        <translation>%1$@ %2$@ cannot be installed on this computer because it requires Linux %3$@ or newer.</translation>
    </message>
    <message>
        <source>To check if an older version of %@ is available for your computer, please visit our software archive.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Visit Archive</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
