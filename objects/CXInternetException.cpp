#include "objects/CXInternetException.h"

#include "objects/InternetTexts.h"
#include "objects/ThreadException.h"
#include "platform/SystemErrors.h"

#include <algorithm>
#include <iterator>

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXInternetException, CXException, xSchemaNotSerializable)

namespace
{
struct InternetText
{
    unsigned error;
    const wchar_t* english;
    const wchar_t* french;
};

// 12003 says that the server's answer holds the reason. No session of the library keeps such answers, so it has no text.
constexpr InternetText kInternetTexts[] = {
    {12001, L"No more internet handles can be made.", L"Impossible de créer d'autres descripteurs Internet."},
    {12002, L"The server did not answer in time.", L"Le serveur n'a pas répondu à temps."},
    {12004, L"An internal error occurred.", L"Une erreur interne s'est produite."},
    {12005, L"The address is not valid.", L"L'adresse n'est pas valide."},
    {12006, L"The protocol of the address is not known.", L"Le protocole de l'adresse est inconnu."},
    {12007, L"The name of the server was not found.", L"Le nom du serveur est introuvable."},
    {12008, L"The protocol is not available.", L"Le protocole n'est pas disponible."},
    {12009, L"The option is not known.", L"L'option est inconnue."},
    {12010, L"The length of the option's value is wrong.", L"La longueur de la valeur de l'option est incorrecte."},
    {12011, L"The option cannot be set.", L"L'option ne peut pas être définie."},
    {12012, L"The internet functions have been shut down.", L"Les fonctions Internet ont été arrêtées."},
    {12013, L"The user name is wrong.", L"Le nom d'utilisateur est incorrect."},
    {12014, L"The password is wrong.", L"Le mot de passe est incorrect."},
    {12015, L"The server refused the login.", L"Le serveur a refusé la connexion de l'utilisateur."},
    {12016, L"The operation is not valid.", L"L'opération n'est pas valide."},
    {12017, L"The operation was cancelled.", L"L'opération a été annulée."},
    {12018, L"The handle is of the wrong type for this operation.",
     L"Le type du descripteur ne convient pas à cette opération."},
    {12019, L"The handle is in the wrong state for this operation.",
     L"L'état du descripteur ne convient pas à cette opération."},
    {12026, L"An earlier request is still running.", L"Une requête précédente est encore en cours."},
    {12027, L"The request has a wrong format.", L"Le format de la requête est incorrect."},
    {12028, L"The item was not found on the server.", L"L'élément est introuvable sur le serveur."},
    {12029, L"The server cannot be reached.", L"Impossible de joindre le serveur."},
    {12030, L"The connection was broken off.", L"La connexion a été interrompue."},
    {12031, L"The server reset the connection.", L"Le serveur a réinitialisé la connexion."},
    {12032, L"The request must be sent again.", L"La requête doit être envoyée à nouveau."},
    {12033, L"The request to the proxy is not valid.", L"La requête au proxy n'est pas valide."},
    {12036, L"The handle exists already.", L"Le descripteur existe déjà."},
    {12037, L"The server's certificate is out of date.", L"Le certificat du serveur a expiré."},
    {12038, L"The server's certificate belongs to another server.",
     L"Le certificat du serveur appartient à un autre serveur."},
    {12039, L"The server redirects from a plain to a secure connection.",
     L"Le serveur redirige d'une connexion simple vers une connexion sécurisée."},
    {12040, L"The server redirects from a secure to a plain connection.",
     L"Le serveur redirige d'une connexion sécurisée vers une connexion simple."},
    {12041, L"The page is only partly secure.", L"La page n'est que partiellement sécurisée."},
    {12044, L"The server asks for a certificate of the client.", L"Le serveur demande un certificat du client."},
    {12045, L"The server's certificate comes from an unknown authority.",
     L"Le certificat du serveur provient d'une autorité inconnue."},
    {12110, L"A file transfer is already running on this connection.",
     L"Un transfert de fichier est déjà en cours sur cette connexion."},
    {12111, L"The file transfer was broken off.", L"Le transfert de fichier a été interrompu."},
    {12150, L"The header was not found.", L"L'en-tête est introuvable."},
    {12151, L"The server sent no headers.", L"Le serveur n'a envoyé aucun en-tête."},
    {12152, L"The server's answer is not valid.", L"La réponse du serveur n'est pas valide."},
    {12153, L"The header is not valid.", L"L'en-tête n'est pas valide."},
    {12154, L"The query is not valid.", L"L'interrogation n'est pas valide."},
    {12155, L"The header exists already.", L"L'en-tête existe déjà."},
    {12156, L"The redirection failed.", L"La redirection a échoué."},
    {12157, L"No secure connection could be made.", L"Impossible d'établir une connexion sécurisée."},
    {12163, L"The connection to the internet is lost.", L"La connexion à Internet est perdue."},
    {12164, L"The server is not reachable.", L"Le serveur n'est pas accessible."},
    {12165, L"The proxy is not reachable.", L"Le proxy n'est pas accessible."},
    {12169, L"The server's certificate is not valid.", L"Le certificat du serveur n'est pas valide."},
    {12170, L"The server's certificate was revoked.", L"Le certificat du serveur a été révoqué."},
    {12175, L"The secure connection failed.", L"La connexion sécurisée a échoué."},
};
} // namespace

CXInternetException::CXInternetException(unsigned __int64 context, unsigned int error)
    : m_errorCode(error != 0 ? error : tev::platform::LastSystemError()), m_context(context)
{
}

CXTString<wchar_t> CXInternetException::GetErrorMessage(unsigned int* helpContext) const
{
    if (helpContext != nullptr)
        *helpContext = 0;
    if (const wchar_t* const text = tev::FindInternetText(m_errorCode, tev::SystemLanguage()))
        return text;
    return tev::platform::SystemErrorText(m_errorCode).c_str();
}

const wchar_t* tev::FindInternetText(unsigned error, XLanguage language) noexcept
{
    const auto* found = std::find_if(std::begin(kInternetTexts), std::end(kInternetTexts),
                                     [error](const InternetText& entry) { return entry.error == error; });
    if (found == std::end(kInternetTexts))
        return nullptr;
    return language == XLanguage::French ? found->french : found->english;
}

void CXInternetException::Throw(unsigned __int64 context, unsigned int error)
{
    XThrow<CXInternetException>(context, error);
}
