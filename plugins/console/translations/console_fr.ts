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
            <numerusform>elle s'est arrêtée pendant le démarrage du module %1 (%n exécution de suite)</numerusform>
            <numerusform>elle s'est arrêtée pendant le démarrage du module %1 (%n exécutions de suite)</numerusform>
        </translation>
    </message>
</context>
</TS>
