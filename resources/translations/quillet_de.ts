<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>InstallerWindow</name>
    <message>
        <source>%@ Installer</source>
        <translation>%@-Installationsprogramm</translation>
    </message>
    <message>
        <source>This will install %@ on your computer.</source>
        <translation>%@ wird auf diesem Computer installiert.</translation>
    </message>
    <message>
        <source>Destination:</source>
        <translation>Ziel:</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Hilfe</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Install</source>
        <translation>Installieren</translation>
    </message>
</context>
<context>
    <name>Quillet</name>
    <message>
        <source>Authorized copying failed.</source>
        <translation>Das Kopieren mit Administratorrechten ist fehlgeschlagen.</translation>
    </message>
    <message>
        <source>Could not delete existing copy.</source>
        <translation>Die vorhandene Kopie konnte nicht entfernt werden.</translation>
    </message>
    <message>
        <source>Installation failed.</source>
        <translation>Die Installation ist fehlgeschlagen.</translation>
    </message>
    <message>
        <source>%1$@ cannot be running during the installation.<byte value="xd"/>Quit %1$@, then click &quot;Install&quot; again.</source>
        <translation>%1$@ darf während der Installation nicht laufen.<byte value="xd"/>Beenden Sie %1$@ und klicken Sie dann erneut auf „Installieren“.</translation>
    </message>
    <message>
        <source>Try installing %1$@ manually by copying it to the Applications folder.</source>
        <translation>Versuchen Sie, %1$@ von Hand in den Programme-Ordner zu kopieren.</translation>
    </message>
    <message>
        <source>%@ was successfully installed.</source>
        <translation>%@ wurde erfolgreich installiert.</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>missing source path</source>
        <translation>Der Quellpfad fehlt.</translation>
    </message>
    <message>
        <source>missing program name</source>
        <translation>Der Programmname fehlt.</translation>
    </message>
    <message>
        <source>missing product signature</source>
        <translation>Die Produktsignatur fehlt.</translation>
    </message>
    <message>
        <source>Install</source>
        <translation>Installieren</translation>
    </message>
    <message>
        <source>Continue</source>
        <translation>Weiter</translation>
    </message>
    <message>
        <source>Go Back</source>
        <translation>Zurück</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>%1$@ %2$@ cannot be installed on this computer because it requires macOS %3$@ or newer.</source>
        <translation>%1$@ %2$@ kann auf diesem Computer nicht installiert werden, da Linux %3$@ oder neuer erforderlich ist.</translation>
    </message>
    <message>
        <source>To check if an older version of %@ is available for your computer, please visit our software archive.</source>
        <translation>Ob eine ältere Version von %@ für Ihren Computer verfügbar ist, erfahren Sie in unserem Software-Archiv.</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Visit Archive</source>
        <translation>Archiv besuchen</translation>
    </message>
</context>
</TS>
