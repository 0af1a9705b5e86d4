<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>ConsolePlugin</name>
    <message>
        <source>updater %1 (%2) started</source>
        <translation>updater %1 (%2) démarré</translation>
    </message>
    <message>
        <source>the previous run did not end in order</source>
        <translation>l&apos;exécution précédente ne s&apos;est pas terminée correctement</translation>
    </message>
    <message numerus="yes">
        <source>quitting after %n second(s), as asked</source>
        <translation>
            <numerusform>arrêt après %n seconde, comme demandé</numerusform>
            <numerusform>arrêt après %n secondes, comme demandé</numerusform>
        </translation>
    </message>
    <message>
        <source>stopping</source>
        <translation>arrêt</translation>
    </message>
    <message>
        <source>service offered: %1</source>
        <translation>service offert : %1</translation>
    </message>
    <message>
        <source>setting changed: %1 = %2</source>
        <translation>réglage modifié : %1 = %2</translation>
    </message>
    <message>
        <source>system: %1, %2 cores, %3 MiB of memory</source>
        <translation>système : %1, %2 cœurs, %3 Mio de mémoire</translation>
    </message>
    <message>
        <source>type &quot;help&quot; for the commands</source>
        <translation>tapez « help » pour les commandes</translation>
    </message>
    <message>
        <source>error %1: %2</source>
        <translation>erreur %1 : %2</translation>
    </message>
    <message>
        <source>link followed: %1</source>
        <translation>lien suivi : %1</translation>
    </message>
    <message>
        <source>question: %1 (answered %2: nobody to ask on the console)</source>
        <translation>question : %1 (réponse %2 : personne à qui demander sur la console)</translation>
    </message>
    <message>
        <source>yes</source>
        <translation>oui</translation>
    </message>
    <message>
        <source>no</source>
        <translation>non</translation>
    </message>
    <message>
        <source>the last window was closed</source>
        <translation>la dernière fenêtre a été fermée</translation>
    </message>
    <message>
        <source>quitting, as asked</source>
        <translation>arrêt, comme demandé</translation>
    </message>
    <message>
        <source>commands: quit, plugins, services, help</source>
        <translation>commandes : quit, plugins, services, help</translation>
    </message>
    <message>
        <source>unknown command &quot;%1&quot;; type &quot;help&quot;</source>
        <translation>commande inconnue « %1 » ; tapez « help »</translation>
    </message>
    <message>
        <source>plugins loaded: %1</source>
        <translation>plugins chargés : %1</translation>
    </message>
    <message>
        <source>services: %1</source>
        <translation>services : %1</translation>
    </message>
    <message>
        <source>none</source>
        <translation>aucun</translation>
    </message>
    <message numerus="yes">
        <source>it ended while plugin %1 was starting (%n run(s) in a row)</source>
        <translation>
            <numerusform>elle s&apos;est arrêtée pendant le démarrage du module %1 (%n exécution de suite)</numerusform>
            <numerusform>elle s&apos;est arrêtée pendant le démarrage du module %1 (%n exécutions de suite)</numerusform>
        </translation>
    </message>
    <message>
        <source>games: %1</source>
        <translation>jeux : %1</translation>
    </message>
</context>
<context>
    <name>EngineReport</name>
    <message>
        <source>checking</source>
        <translation>vérification</translation>
    </message>
    <message>
        <source>downloading</source>
        <translation>téléchargement</translation>
    </message>
    <message>
        <source>assembling files</source>
        <translation>assemblage des fichiers</translation>
    </message>
    <message>
        <source>verifying</source>
        <translation>contrôle</translation>
    </message>
    <message>
        <source>finishing</source>
        <translation>finalisation</translation>
    </message>
    <message>
        <source>working</source>
        <translation>travail en cours</translation>
    </message>
    <message>
        <source>every game is checked</source>
        <translation>tous les jeux sont vérifiés</translation>
    </message>
    <message>
        <source>not examined yet</source>
        <translation>pas encore examiné</translation>
    </message>
    <message>
        <source>running: changes wait for the game to end</source>
        <translation>en cours d'exécution : les modifications attendent la fin du jeu</translation>
    </message>
    <message>
        <source>working on its files</source>
        <translation>travail sur ses fichiers</translation>
    </message>
    <message>
        <source>checking for updates</source>
        <translation>recherche de mises à jour</translation>
    </message>
    <message>
        <source>the last operation failed</source>
        <translation>la dernière opération a échoué</translation>
    </message>
    <message>
        <source>damaged: repair it</source>
        <translation>endommagé : réparez-le</translation>
    </message>
    <message>
        <source>not installed</source>
        <translation>non installé</translation>
    </message>
    <message>
        <source>not installed (%1 available)</source>
        <translation>non installé (%1 disponible)</translation>
    </message>
    <message>
        <source>version %1, update %2 available</source>
        <translation>version %1, mise à jour %2 disponible</translation>
    </message>
    <message>
        <source>version %1, up to date</source>
        <translation>version %1, à jour</translation>
    </message>
    <message>
        <source>state %1</source>
        <translation>état %1</translation>
    </message>
    <message>
        <source> %1% of %2</source>
        <translation> %1 % de %2</translation>
    </message>
    <message>
        <source>, %1/s</source>
        <translation>, %1/s</translation>
    </message>
    <message numerus="yes">
        <source>, %n second(s) left</source>
        <translation>
            <numerusform>, %n seconde restante</numerusform>
            <numerusform>, %n secondes restantes</numerusform>
        </translation>
    </message>
    <message>
        <source>%1: done, version %2</source>
        <translation>%1 : terminé, version %2</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
    <message>
        <source>no update engine is loaded</source>
        <translation>aucun moteur de mise à jour n'est chargé</translation>
    </message>
</context>
</TS>
