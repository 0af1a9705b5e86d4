<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr">
<context>
    <name>DeveloperPanel</name>
    <message>
        <source>&amp;Log</source>
        <translation>&amp;Journal</translation>
    </message>
    <message>
        <source>&amp;Errors</source>
        <translation>&amp;Erreurs</translation>
    </message>
    <message>
        <source>&amp;Remove error</source>
        <translation>&amp;Retirer l&apos;erreur</translation>
    </message>
    <message>
        <source>Clear &amp;all errors</source>
        <translation>Retirer &amp;toutes les erreurs</translation>
    </message>
    <message>
        <source>Log</source>
        <translation>Journal</translation>
    </message>
    <message>
        <source>Errors</source>
        <translation>Erreurs</translation>
    </message>
    <message>
        <source>Remove the selected error</source>
        <translation>Retirer l&apos;erreur choisie</translation>
    </message>
    <message>
        <source>Remove all errors</source>
        <translation>Retirer toutes les erreurs</translation>
    </message>
</context>
<context>
    <name>MainAction</name>
    <message>
        <source>Install</source>
        <translation>Installer</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Mettre à jour</translation>
    </message>
    <message>
        <source>Resume</source>
        <translation>Reprendre</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Jouer</translation>
    </message>
    <message>
        <source>Repair</source>
        <translation>Réparer</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>Running</source>
        <translation>En cours</translation>
    </message>
    <message>
        <source>Please wait</source>
        <translation>Patientez</translation>
    </message>
    <message>
        <source>Not examined yet</source>
        <translation>Pas encore examiné</translation>
    </message>
    <message>
        <source>Working on its files</source>
        <translation>Travail sur ses fichiers</translation>
    </message>
    <message>
        <source>Checking for updates</source>
        <translation>Recherche de mises à jour</translation>
    </message>
    <message>
        <source>The last operation failed</source>
        <translation>La dernière opération a échoué</translation>
    </message>
    <message>
        <source>Damaged: repair it</source>
        <translation>Endommagé : à réparer</translation>
    </message>
    <message>
        <source>Not installed</source>
        <translation>Pas installé</translation>
    </message>
    <message>
        <source>Update %1 available</source>
        <translation>Mise à jour %1 disponible</translation>
    </message>
    <message>
        <source>Up to date</source>
        <translation>À jour</translation>
    </message>
    <message>
        <source>Ready</source>
        <translation>Prêt</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Checking</source>
        <translation>Vérification du serveur</translation>
    </message>
    <message>
        <source>Downloading</source>
        <translation>Téléchargement</translation>
    </message>
    <message>
        <source>Assembling files</source>
        <translation>Assemblage des fichiers</translation>
    </message>
    <message>
        <source>Verifying</source>
        <translation>Vérification</translation>
    </message>
    <message>
        <source>Finishing</source>
        <translation>Finalisation</translation>
    </message>
    <message>
        <source>Working</source>
        <translation>Travail en cours</translation>
    </message>
    <message>
        <source>version %1</source>
        <translation>version %1</translation>
    </message>
    <message>
        <source>Banner of %1</source>
        <translation>Bannière de %1</translation>
    </message>
    <message>
        <source>%1 of %2</source>
        <translation>%1 sur %2</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/s</translation>
    </message>
    <message>
        <source>%1: version %2 is installed.</source>
        <translation>%1 : la version %2 est installée.</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation>Lanceur de jeux</translation>
    </message>
    <message>
        <source>&amp;Games</source>
        <translation>&amp;Jeux</translation>
    </message>
    <message>
        <source>&amp;News</source>
        <translation>&amp;Nouvelles</translation>
    </message>
    <message>
        <source>&amp;Settings...</source>
        <translation>&amp;Paramètres...</translation>
    </message>
    <message>
        <source>Check for &amp;updates</source>
        <translation>Chercher des &amp;mises à jour</translation>
    </message>
    <message>
        <source>Games</source>
        <translation>Jeux</translation>
    </message>
    <message>
        <source>News</source>
        <translation>Nouvelles</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Paramètres</translation>
    </message>
    <message>
        <source>Check every game for updates</source>
        <translation>Chercher des mises à jour pour chaque jeu</translation>
    </message>
    <message>
        <source>Progress</source>
        <translation>Progression</translation>
    </message>
    <message>
        <source>Progress details</source>
        <translation>Détails de la progression</translation>
    </message>
    <message>
        <source>Trailer</source>
        <translation>Bande-annonce</translation>
    </message>
</context>
<context>
    <name>SettingsDialog</name>
    <message>
        <source>Settings</source>
        <translation>Paramètres</translation>
    </message>
    <message>
        <source>&amp;Language:</source>
        <translation>&amp;Langue :</translation>
    </message>
    <message>
        <source>Download &amp;limit:</source>
        <translation>&amp;Limite de téléchargement :</translation>
    </message>
    <message>
        <source>No limit</source>
        <translation>Pas de limite</translation>
    </message>
    <message>
        <source> KiB/s</source>
        <translation> Kio/s</translation>
    </message>
    <message>
        <source>Parallel &amp;connections:</source>
        <translation>&amp;Connexions simultanées :</translation>
    </message>
    <message>
        <source>Install &amp;folder:</source>
        <translation>&amp;Dossier d&apos;installation :</translation>
    </message>
    <message>
        <source>&amp;Browse...</source>
        <translation>&amp;Parcourir...</translation>
    </message>
    <message>
        <source>&amp;Plugins:</source>
        <translation>&amp;Modules :</translation>
    </message>
    <message>
        <source>Plugins switched on or off load or stay away from the next start on.</source>
        <translation>Les modules activés ou désactivés le sont à partir du prochain démarrage.</translation>
    </message>
    <message>
        <source>&amp;Developer mode</source>
        <translation>Mode &amp;développeur</translation>
    </message>
    <message>
        <source>Closing the window keeps the launcher in the &amp;tray</source>
        <translation>Fermer la fenêtre garde le lanceur dans la zone de &amp;notification</translation>
    </message>
    <message>
        <source>Language</source>
        <translation>Langue</translation>
    </message>
    <message>
        <source>Download limit in KiB per second, 0 for no limit</source>
        <translation>Limite de téléchargement en Kio par seconde, 0 pour aucune</translation>
    </message>
    <message>
        <source>Parallel connections</source>
        <translation>Connexions simultanées</translation>
    </message>
    <message>
        <source>Install folder of the selected game</source>
        <translation>Dossier d&apos;installation du jeu choisi</translation>
    </message>
    <message>
        <source>Choose the install folder</source>
        <translation>Choisir le dossier d&apos;installation</translation>
    </message>
    <message>
        <source>Plugins to load</source>
        <translation>Modules à charger</translation>
    </message>
    <message>
        <source>Developer mode</source>
        <translation>Mode développeur</translation>
    </message>
    <message>
        <source>Close to tray</source>
        <translation>Fermer dans la zone de notification</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Fermer</translation>
    </message>
    <message>
        <source>Close the settings</source>
        <translation>Fermer les paramètres</translation>
    </message>
    <message>
        <source>Install folder</source>
        <translation>Dossier d&apos;installation</translation>
    </message>
</context>
<context>
    <name>WindowPlugin</name>
    <message>
        <source>&amp;Show the launcher</source>
        <translation>&amp;Afficher le lanceur</translation>
    </message>
    <message>
        <source>&amp;Hide the launcher</source>
        <translation>&amp;Masquer le lanceur</translation>
    </message>
    <message>
        <source>&amp;Check for updates</source>
        <translation>&amp;Chercher des mises à jour</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Quitter</translation>
    </message>
    <message>
        <source>Game launcher</source>
        <translation>Lanceur de jeux</translation>
    </message>
    <message>
        <source>%1 is up to date</source>
        <translation>%1 est à jour</translation>
    </message>
    <message>
        <source>Version %1 is installed.</source>
        <translation>La version %1 est installée.</translation>
    </message>
    <message>
        <source>%1 was not updated</source>
        <translation>%1 n&apos;a pas été mis à jour</translation>
    </message>
    <message>
        <source>Error %1</source>
        <translation>Erreur %1</translation>
    </message>
    <message>
        <source>Show</source>
        <translation>Afficher</translation>
    </message>
</context>
</TS>
