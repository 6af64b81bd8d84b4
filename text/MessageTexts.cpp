#include "text/MessageTexts.h"

#include <algorithm>
#include <iterator>

namespace
{
struct TextOfNumber
{
    unsigned id;
    const wchar_t* english;
    const wchar_t* french;
};

constexpr unsigned kColourWithAlpha = 5311;
constexpr unsigned kColour = 5312;
constexpr unsigned kReport = 0xE100;
constexpr unsigned kZipFailure = tev::kTextZipFailure;
constexpr unsigned kExtraction = tev::kTextExtractionFailure;
constexpr unsigned kSkip = tev::kTextSkipReason;
constexpr unsigned kDamage = tev::kTextStreamDamage;
constexpr unsigned kRegistry = tev::kTextRegistryFault;
constexpr unsigned kFailure = tev::kTextFailure;
constexpr unsigned kDetail = tev::kTextFailureDetail;
constexpr unsigned kThrown = tev::kTextThrown;
constexpr unsigned kStackEnd = tev::kTextStackEnd;
constexpr unsigned kSystem = tev::kTextSystemError;
constexpr unsigned kUnnamedFile = 0xF006;
constexpr unsigned kFileCause = 0xF1A0;
constexpr unsigned kArchiveCause = 0xF1B0;
constexpr unsigned kNoApplicationName = 0xF1D0;

// In the order of their numbers. "%s" stands for the name of the file; the text of an unnamed one is put in its place.
constexpr TextOfNumber kMessageTexts[] = {
    {kColourWithAlpha, L"%d %d %d %d (RGBA)", L"%d %d %d %d (RVBA)"},
    {kColour, L"%d %d %d (RGB)", L"%d %d %d (RVB)"},

    {kReport + 0, L"Error report for %s version %s.", L"Rapport d'erreur pour %s version %s."},
    {kReport + 1, L"Memory dump", L"Vidage mémoire"},
    {kReport + 2, L"Error log", L"Journal d'erreur"},
    {kReport + 3, L"Zip files (*.zip)", L"Fichiers Zip (*.zip)"},
    {kReport + 4, L"Report %s (to be sent to %s).zip", L"Rapport %s (à envoyer à %s).zip"},
    {kReport + 5, L"Send the report by hand", L"Envoi manuel du rapport"},
    {kReport + 6, L"No default mail program is set. Please send the report %s to %s yourself.",
     L"Aucun programme de messagerie par défaut n'est défini. Veuillez envoyer vous-même le rapport %s à %s."},
    {kReport + 7, L"%s version %s has met a problem and must close. A report can be sent to technical support.",
     L"%s version %s a rencontré un problème et doit se fermer. Un rapport peut être envoyé au support technique."},
    {kReport + 8, L"%s version %s has met problems with files. A report can be sent to technical support.",
     L"%s version %s a rencontré des problèmes avec des fichiers. Un rapport peut être envoyé au support technique."},
    {kReport + 9, L"support@example.com", L"support@example.com"},
    {kReport + 10, L"Name", L"Nom"},
    {kReport + 11, L"Description", L"Description"},
    {kReport + 12, L"Size", L"Taille"},
    {kReport + 13, L"Type", L"Type"},
    {kReport + 14, L"Details of the error", L"Détails de l'erreur"},
    {kReport + 15, L"The report is not saved", L"Le rapport n'est pas enregistré"},
    {kReport + 16, L"%s The report stays where it is: %s", L"%s Le rapport reste où il est : %s"},

    {kZipFailure + 0, L"No error occurred.", L"Aucune erreur ne s'est produite."},
    {kZipFailure + 1, L"A file could not be read or written, or memory ran out.",
     L"Un fichier n'a pas pu être lu ou écrit, ou la mémoire est insuffisante."},
    {kZipFailure + 2, L"The file is not a ZIP archive.", L"Le fichier n'est pas une archive ZIP."},
    {kZipFailure + 3, L"The archive or the entry is damaged.", L"L'archive ou l'entrée est endommagée."},
    {kZipFailure + 4, L"It is compressed or encrypted in a way that is not supported.",
     L"La méthode de compression ou de chiffrement n'est pas prise en charge."},
    {kZipFailure + 5, L"A volume of the split archive is missing.", L"Un volume de l'archive fractionnée est absent."},
    {kZipFailure + 6, L"A password is needed.", L"Un mot de passe est nécessaire."},
    {kZipFailure + 7, L"The password is wrong.", L"Le mot de passe est incorrect."},
    {kZipFailure + 8, L"The password is wrong, or the entry is damaged.",
     L"Le mot de passe est incorrect, ou l'entrée est endommagée."},
    {kZipFailure + 9, L"The archive has an entry of that name already.", L"L'archive a déjà une entrée de ce nom."},
    {kZipFailure + 10, L"The archive has no such entry.", L"L'archive n'a pas cette entrée."},
    {kZipFailure + 11, L"The name leads out of its folder, or cannot be that of a file everywhere.",
     L"Le nom mène hors de son dossier, ou ne peut pas être celui d'un fichier sur tous les systèmes."},
    {kZipFailure + 12, L"It is a link, a device or another special file.",
     L"C'est un lien, un périphérique ou un autre fichier spécial."},
    {kZipFailure + 13, L"It would unpack to more than the limits allow.",
     L"Une fois décompressé, il dépasserait les limites autorisées."},
    {kZipFailure + 14, L"The archive can only be read.", L"L'archive ne peut être que lue."},
    {kZipFailure + 15, L"Another program has changed the archive meanwhile.",
     L"Un autre programme a modifié l'archive entre-temps."},
    {kZipFailure + 16, L"The entry was skipped.", L"L'entrée a été ignorée."},
    {kZipFailure + 17, L"The operation was cancelled.", L"L'opération a été annulée."},
    {kZipFailure + 18, L"The call was refused: an argument or the state of the archive does not allow it.",
     L"L'appel a été refusé : un argument ou l'état de l'archive ne le permet pas."},

    {kExtraction + 0, L"No error occurred.", L"Aucune erreur ne s'est produite."},
    {kExtraction + 1, L"There is no such file.", L"Ce fichier n'existe pas."},
    {kExtraction + 2, L"The file cannot be read, or is not of the expected kind.",
     L"Le fichier ne peut pas être lu, ou n'est pas du type attendu."},
    {kExtraction + 3, L"The file is damaged or cut off.", L"Le fichier est endommagé ou tronqué."},
    {kExtraction + 4, L"No file could be unpacked.", L"Aucun fichier n'a pu être décompressé."},
    {kExtraction + 5, L"It would unpack to more than the limits allow.",
     L"Une fois décompressé, il dépasserait les limites autorisées."},
    {kExtraction + 6, L"The destination cannot be written to, or the disk is full.",
     L"Impossible d'écrire dans la destination, ou le disque est plein."},
    {kExtraction + 7, L"There is not enough memory.", L"La mémoire est insuffisante."},
    {kExtraction + 8, L"The operation was cancelled.", L"L'opération a été annulée."},
    {kExtraction + 9, L"Too many files are open.", L"Trop de fichiers sont ouverts."},

    {kSkip + 0, L"The entry is damaged.", L"L'entrée est endommagée."},
    {kSkip + 1, L"The entry's name is not safe.", L"Le nom de l'entrée n'est pas sûr."},
    {kSkip + 2, L"An earlier entry has that name.", L"Une entrée précédente porte ce nom."},
    {kSkip + 3, L"The entry is a link, a device or another special file.",
     L"L'entrée est un lien, un périphérique ou un autre fichier spécial."},
    {kSkip + 4, L"The entry is encrypted, and the password is missing or wrong.",
     L"L'entrée est chiffrée, et le mot de passe est absent ou incorrect."},
    {kSkip + 5, L"The entry is compressed or encrypted in a way that is not supported.",
     L"La méthode de compression ou de chiffrement de l'entrée n'est pas prise en charge."},
    {kSkip + 6, L"The entry would unpack to more than the limits allow.",
     L"Une fois décompressée, l'entrée dépasserait les limites autorisées."},
    {kSkip + 7, L"The archive cannot be read there.", L"L'archive ne peut pas être lue à cet endroit."},
    {kSkip + 8, L"The file cannot be written, or lies behind a link.",
     L"Le fichier ne peut pas être écrit, ou se trouve derrière un lien."},

    {kDamage + 0, L"No damage was found.", L"Aucun dommage n'a été trouvé."},
    {kDamage + 1, L"The file is cut off.", L"Le fichier est tronqué."},
    {kDamage + 2, L"The file is damaged: its header is not valid.",
     L"Le fichier est endommagé : son en-tête n'est pas valide."},
    {kDamage + 3, L"The file is damaged: its method of compression is not known.",
     L"Le fichier est endommagé : sa méthode de compression est inconnue."},
    {kDamage + 4, L"The file is damaged: its data is not valid.",
     L"Le fichier est endommagé : ses données ne sont pas valides."},
    {kDamage + 5, L"The file is damaged: its checksum is wrong.",
     L"Le fichier est endommagé : sa somme de contrôle est incorrecte."},
    {kDamage + 6, L"The file is damaged: its length is wrong.",
     L"Le fichier est endommagé : sa longueur est incorrecte."},

    {kRegistry + 0, L"No error occurred.", L"Aucune erreur ne s'est produite."},
    {kRegistry + 1, L"The first line is not that of a registry text.",
     L"La première ligne n'est pas celle d'un texte du registre."},
    {kRegistry + 2, L"The line is not the path of a key in brackets.",
     L"La ligne n'est pas le chemin d'une clé entre crochets."},
    {kRegistry + 3, L"A value stands before the first key, or below one that is deleted.",
     L"Une valeur précède la première clé, ou se trouve sous une clé supprimée."},
    {kRegistry + 4, L"The line is not a name, an equals sign and data.",
     L"La ligne n'est pas un nom, un signe égal et des données."},
    {kRegistry + 5, L"The registry refused the change, or could not be written.",
     L"Le registre a refusé la modification, ou n'a pas pu être écrit."},

    {kFailure + 0, L"No failure is known.", L"Aucun échec n'est connu."},
    {kFailure + 1, L"The system refused the operation.", L"Le système a refusé l'opération."},
    {kFailure + 2, L"The data is damaged, or not of the expected kind.",
     L"Les données sont endommagées, ou ne sont pas du type attendu."},
    {kFailure + 3, L"There is not enough memory.", L"La mémoire est insuffisante."},
    {kFailure + 4, L"The call was refused: an argument or the state of the object does not allow it.",
     L"L'appel a été refusé : un argument ou l'état de l'objet ne le permet pas."},
    {kFailure + 5, L"The operation was cancelled.", L"L'opération a été annulée."},
    {kFailure + 6, L"There is no store of these keys in %s.", L"Il n'y a pas de données sous ces clés dans %s."},
    {kFailure + 7, L"Unknown exception.", L"Exception inconnue."},
    {kFailure + 8, L"The encoding is not known on this system.", L"L'encodage est inconnu sur ce système."},

    {kDetail + 0, L"system error %u", L"erreur système %u"},
    {kDetail + 1, L"context %I64u", L"contexte %I64u"},

    {kThrown + 0, L"The operation failed.", L"L'opération a échoué."},
    {kThrown + 1, L"An internet operation failed.", L"Une opération Internet a échoué."},

    {kStackEnd + 0, L"The stack is complete.", L"La pile est complète."},
    {kStackEnd + 1, L"The dump has no registers of the thread.", L"Le vidage n'a pas les registres du thread."},
    {kStackEnd + 2, L"The dump has no more of the stack.", L"Le vidage n'a pas la suite de la pile."},
    {kStackEnd + 3, L"The address is in no module.", L"L'adresse n'est dans aucun module."},
    {kStackEnd + 4, L"The module is not on this machine, or another version of it is.",
     L"Le module n'est pas sur cette machine, ou une autre version y est."},
    {kStackEnd + 5, L"The module does not say who called.", L"Le module ne dit pas d'où vient l'appel."},
    {kStackEnd + 6, L"There are more frames.", L"Il y a d'autres appels."},

    {kSystem + 2, L"It was not found.", L"L'élément est introuvable."},
    {kSystem + 3, L"The path was not found.", L"Le chemin est introuvable."},
    {kSystem + 4, L"Too many files are open.", L"Trop de fichiers sont ouverts."},
    {kSystem + 5, L"Access was denied.", L"L'accès a été refusé."},
    {kSystem + 6, L"The handle is not valid.", L"Le descripteur n'est pas valide."},
    {kSystem + 8, L"There is not enough memory.", L"La mémoire est insuffisante."},
    {kSystem + 13, L"The data is not valid.", L"Les données ne sont pas valides."},
    {kSystem + 19, L"The medium is write-protected.", L"Le support est protégé en écriture."},
    {kSystem + 21, L"It is not ready.", L"L'élément n'est pas prêt."},
    {kSystem + 32, L"It is in use elsewhere.", L"L'élément est utilisé ailleurs."},
    {kSystem + 50, L"It is not supported.", L"Ce n'est pas pris en charge."},
    {kSystem + 87, L"An argument is not valid: a name is too long, holds what is not a character, or lies too deep.",
     L"Un argument n'est pas valide : un nom est trop long, contient autre chose que des caractères, ou est trop "
     L"profond."},
    {kSystem + 112, L"The disk is full.", L"Le disque est plein."},
    {kSystem + 164, L"The system refuses to start another thread.", L"Le système refuse de démarrer un autre thread."},
    {kSystem + 170, L"It has been in use by another program for too long.",
     L"L'élément est utilisé par un autre programme depuis trop longtemps."},
    {kSystem + 234, L"The buffer is too small.", L"Le tampon est trop petit."},
    {kSystem + 259, L"There are no more items.", L"Il n'y a plus d'éléments."},
    {kSystem + 1009, L"The file of the registry is damaged, or is none.",
     L"Le fichier du registre est endommagé, ou n'en est pas un."},
    {kSystem + 1017, L"The file of the registry holds something else.",
     L"Le fichier du registre contient autre chose."},
    {kSystem + 1018, L"The key was deleted meanwhile.", L"La clé a été supprimée entre-temps."},
    {kSystem + 1237, L"It was changed meanwhile.", L"L'élément a été modifié entre-temps."},
    {kSystem + 1306, L"The file of the registry is of a later version.",
     L"Le fichier du registre est d'une version ultérieure."},
    {kSystem + 1450, L"The value is too large.", L"La valeur est trop grande."},
    {kSystem + 1460, L"The time for it is over.", L"Le délai est dépassé."},

    {kUnnamedFile, L"a file without a name", L"un fichier sans nom"},

    {kFileCause + 0, L"No error occurred with %s.", L"Aucune erreur ne s'est produite avec %s."},
    {kFileCause + 1, L"An unknown error occurred with %s.", L"Une erreur inconnue s'est produite avec %s."},
    {kFileCause + 2, L"Cannot find %s.", L"Impossible de trouver %s."},
    {kFileCause + 3, L"Cannot reach %s: the path does not exist or is not valid.",
     L"Impossible d'atteindre %s : le chemin n'existe pas ou n'est pas valide."},
    {kFileCause + 4, L"Cannot open %s: too many files are open.",
     L"Impossible d'ouvrir %s : trop de fichiers sont ouverts."},
    {kFileCause + 5, L"Cannot access %s: permission was denied.",
     L"Impossible d'accéder à %s : la permission a été refusée."},
    {kFileCause + 6, L"Cannot use %s: it is not a valid file or is not open.",
     L"Impossible d'utiliser %s : ce n'est pas un fichier valide ou il n'est pas ouvert."},
    {kFileCause + 7, L"Cannot remove %s: it is the current folder.",
     L"Impossible de supprimer %s : c'est le dossier courant."},
    {kFileCause + 8, L"Cannot create %s: the folder is full.", L"Impossible de créer %s : le dossier est plein."},
    {kFileCause + 9, L"Cannot move to the position that was asked for in %s.",
     L"Impossible d'aller à la position demandée dans %s."},
    {kFileCause + 10, L"The device reported an error while it worked on %s.",
     L"Le périphérique a signalé une erreur pendant le traitement de %s."},
    {kFileCause + 11, L"Cannot open %s: it is in use elsewhere.", L"Impossible d'ouvrir %s : il est utilisé ailleurs."},
    {kFileCause + 12, L"Cannot access %s: a part of it is locked.",
     L"Impossible d'accéder à %s : une partie en est verrouillée."},
    {kFileCause + 13, L"Cannot write %s: the disk is full.", L"Impossible d'écrire %s : le disque est plein."},
    {kFileCause + 14, L"Cannot read %s any further: its end was reached.",
     L"Impossible de poursuivre la lecture de %s : la fin est atteinte."},

    {kArchiveCause + 0, L"No error occurred with the objects of %s.",
     L"Aucune erreur ne s'est produite avec les objets de %s."},
    {kArchiveCause + 1, L"An unknown error occurred with the objects of %s.",
     L"Une erreur inconnue s'est produite avec les objets de %s."},
    {kArchiveCause + 2, L"Cannot write to %s: it is open for reading.",
     L"Impossible d'écrire dans %s : il est ouvert en lecture."},
    {kArchiveCause + 3, L"Cannot read %s: it ends too early.", L"Impossible de lire %s : il se termine trop tôt."},
    {kArchiveCause + 4, L"Cannot read from %s: it is open for writing.",
     L"Impossible de lire dans %s : il est ouvert en écriture."},
    {kArchiveCause + 5, L"Cannot read %s: it refers to an object that is not there.",
     L"Impossible de lire %s : il fait référence à un objet absent."},
    {kArchiveCause + 6, L"Cannot read %s: it holds an object of an unknown or unexpected class.",
     L"Impossible de lire %s : il contient un objet d'une classe inconnue ou inattendue."},
    {kArchiveCause + 7, L"Cannot read %s: it was written by another version.",
     L"Impossible de lire %s : il a été écrit par une autre version."},
    {kArchiveCause + 8, L"Cannot read %s: one of its items is larger than the buffer.",
     L"Impossible de lire %s : un de ses éléments dépasse la taille du tampon."},

    {kNoApplicationName, L"Default form of SetPath requires you to specify the appname in the constructor.",
     L"La forme par défaut de SetPath exige d'indiquer le nom de l'application dans le constructeur."},
};
} // namespace

const wchar_t* tev::FindMessageText(unsigned id) noexcept
{
    return FindMessageText(id, XGetLanguage());
}

const wchar_t* tev::FindMessageText(unsigned id, XLanguage language) noexcept
{
    const auto precedes = [](const TextOfNumber& text, unsigned number) { return text.id < number; };
    const auto* found = std::lower_bound(std::begin(kMessageTexts), std::end(kMessageTexts), id, precedes);
    if (found == std::end(kMessageTexts) || found->id != id)
        return nullptr;
    return language == XLanguage::French ? found->french : found->english;
}
