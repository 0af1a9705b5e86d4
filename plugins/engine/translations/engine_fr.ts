<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>EngineErrors</name>
    <message>
        <source>The update server of %1 cannot be reached.</source>
        <translation>Le serveur de mise à jour de %1 est injoignable.</translation>
    </message>
    <message>
        <source>Check your internet connection. The launcher tries again at its next check.</source>
        <translation>Vérifiez votre connexion à Internet. Le lanceur réessaiera à sa prochaine vérification.</translation>
    </message>
    <message>
        <source>The update server of %1 refused the request.</source>
        <translation>Le serveur de mise à jour de %1 a refusé la demande.</translation>
    </message>
    <message>
        <source>Try again later. If it persists, the server may be down for maintenance.</source>
        <translation>Réessayez plus tard. Si le problème persiste, le serveur est peut-être en maintenance.</translation>
    </message>
    <message>
        <source>The release of %1 offered by the server is not signed correctly.</source>
        <translation>La version de %1 proposée par le serveur n'est pas correctement signée.</translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this server until its publisher has fixed it.</source>
        <translation>Rien n'a été installé. N'utilisez plus ce serveur avant que son éditeur l'ait corrigé.</translation>
    </message>
    <message>
        <source>The release of %1 is signed by an unknown publisher.</source>
        <translation>La version de %1 est signée par un éditeur inconnu.</translation>
    </message>
    <message>
        <source>Nothing was installed. Check the address of the update server.</source>
        <translation>Rien n'a été installé. Vérifiez l'adresse du serveur de mise à jour.</translation>
    </message>
    <message>
        <source>The server offers an older release of %1 than the one already accepted.</source>
        <translation>Le serveur propose une version de %1 plus ancienne que celle déjà acceptée.</translation>
    </message>
    <message>
        <source>Nothing was changed. Someone may be serving an outdated copy; try again later.</source>
        <translation>Rien n'a été modifié. Quelqu'un sert peut-être une copie périmée ; réessayez plus tard.</translation>
    </message>
    <message>
        <source>The release information of %1 on the server has expired.</source>
        <translation>Les informations de version de %1 sur le serveur ont expiré.</translation>
    </message>
    <message>
        <source>Nothing was changed. The publisher must publish again; contact support if it persists.</source>
        <translation>Rien n'a été modifié. L'éditeur doit publier à nouveau ; contactez le support si cela persiste.</translation>
    </message>
    <message>
        <source>Data of %1 received from the server do not match the signed release.</source>
        <translation>Des données de %1 reçues du serveur ne correspondent pas à la version signée.</translation>
    </message>
    <message>
        <source>Nothing damaged was installed. Try again later; contact support if it persists.</source>
        <translation>Rien d'endommagé n'a été installé. Réessayez plus tard ; contactez le support si cela persiste.</translation>
    </message>
    <message>
        <source>The release of %1 would write outside its folder.</source>
        <translation>La version de %1 écrirait hors de son dossier.</translation>
    </message>
    <message>
        <source>Nothing was installed. Do not use this release; contact support.</source>
        <translation>Rien n'a été installé. N'utilisez pas cette version ; contactez le support.</translation>
    </message>
    <message>
        <source>%1 has no publisher key in the launcher&apos;s configuration.</source>
        <translation>%1 n'a pas de clé d'éditeur dans la configuration du lanceur.</translation>
    </message>
    <message>
        <source>Add the publisher&apos;s public key to the configuration script (projects.&lt;id&gt;.keys).</source>
        <translation>Ajoutez la clé publique de l'éditeur au script de configuration (projects.&lt;id&gt;.keys).</translation>
    </message>
    <message>
        <source>The update server of %1 has no such release channel.</source>
        <translation>Le serveur de mise à jour de %1 n'a pas ce canal de publication.</translation>
    </message>
    <message>
        <source>Choose another channel in the settings.</source>
        <translation>Choisissez un autre canal dans les réglages.</translation>
    </message>
    <message>
        <source>There is not enough disk space for %1.</source>
        <translation>Il n'y a pas assez d'espace disque pour %1.</translation>
    </message>
    <message>
        <source>Free some space, or choose another install folder, and try again.</source>
        <translation>Libérez de l'espace ou choisissez un autre dossier d'installation, puis réessayez.</translation>
    </message>
    <message>
        <source>The launcher may not write to the install folder of %1.</source>
        <translation>Le lanceur ne peut pas écrire dans le dossier d'installation de %1.</translation>
    </message>
    <message>
        <source>Choose an install folder you may write to.</source>
        <translation>Choisissez un dossier d'installation où vous pouvez écrire.</translation>
    </message>
    <message>
        <source>Another program is working on the install folder of %1.</source>
        <translation>Un autre programme travaille sur le dossier d'installation de %1.</translation>
    </message>
    <message>
        <source>Wait for it to finish, then try again.</source>
        <translation>Attendez qu'il ait fini, puis réessayez.</translation>
    </message>
    <message>
        <source>%1 is not installed.</source>
        <translation>%1 n'est pas installé.</translation>
    </message>
    <message>
        <source>Install it first.</source>
        <translation>Installez-le d'abord.</translation>
    </message>
    <message>
        <source>The launcher&apos;s records of %1 are unreadable.</source>
        <translation>Les données du lanceur concernant %1 sont illisibles.</translation>
    </message>
    <message>
        <source>Uninstall the game and install it again.</source>
        <translation>Désinstallez le jeu et réinstallez-le.</translation>
    </message>
    <message>
        <source>Some files of %1 are damaged or missing.</source>
        <translation>Certains fichiers de %1 sont endommagés ou manquants.</translation>
    </message>
    <message>
        <source>Repair the game.</source>
        <translation>Réparez le jeu.</translation>
    </message>
    <message>
        <source>There is no earlier version of %1 to go back to.</source>
        <translation>Il n'existe pas de version antérieure de %1 à laquelle revenir.</translation>
    </message>
    <message>
        <source>Only the version before the last update is kept.</source>
        <translation>Seule la version précédant la dernière mise à jour est conservée.</translation>
    </message>
    <message>
        <source>A file of %1 could not be read or written.</source>
        <translation>Un fichier de %1 n'a pas pu être lu ou écrit.</translation>
    </message>
    <message>
        <source>Check the disk, then try again. The details name the file.</source>
        <translation>Vérifiez le disque, puis réessayez. Les détails indiquent le fichier.</translation>
    </message>
    <message>
        <source>The settings of %1 are incomplete.</source>
        <translation>Les réglages de %1 sont incomplets.</translation>
    </message>
    <message>
        <source>The details say which setting is missing or wrong.</source>
        <translation>Les détails indiquent quel réglage manque ou est erroné.</translation>
    </message>
    <message>
        <source>%1 does not start.</source>
        <translation>%1 ne démarre pas.</translation>
    </message>
    <message>
        <source>Repair the game, then try again.</source>
        <translation>Réparez le jeu, puis réessayez.</translation>
    </message>
    <message>
        <source>%1 is running: it cannot be changed now.</source>
        <translation>%1 est en cours d'exécution : il ne peut pas être modifié maintenant.</translation>
    </message>
    <message>
        <source>Quit the game; the launcher goes on by itself.</source>
        <translation>Quittez le jeu ; le lanceur continuera de lui-même.</translation>
    </message>
</context>
<context>
    <name>GameProcess</name>
    <message>
        <source>%1 is not an executable file</source>
        <translation>%1 n'est pas un fichier exécutable</translation>
    </message>
    <message>
        <source>%1 cannot be started: %2</source>
        <translation>%1 ne peut pas être démarré : %2</translation>
    </message>
</context>
<context>
    <name>ProjectConfig</name>
    <message>
        <source>projects.%1.url does not name a repository.</source>
        <translation>projects.%1.url ne désigne aucun dépôt.</translation>
    </message>
    <message>
        <source>projects.%1.dir names no install directory.</source>
        <translation>projects.%1.dir ne désigne aucun dossier d'installation.</translation>
    </message>
    <message>
        <source>projects.%1.keys: %2</source>
        <translation>projects.%1.keys : %2</translation>
    </message>
    <message>
        <source>projects.%1.keys lists no public key in the configuration script: releases cannot be verified.</source>
        <translation>projects.%1.keys ne donne aucune clé publique dans le script de configuration : les versions ne peuvent pas être vérifiées.</translation>
    </message>
</context>
</TS>
