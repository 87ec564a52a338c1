#include "Pages/PageTexts.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace quillo::server {
namespace {

constexpr std::array<std::string_view, 6> languages{"en", "de", "es", "fr", "ru", "zh"};

struct Row {
    PageText text;
    std::array<std::string_view, languages.size()> words; ///< in the order of `languages`
};

constexpr std::array rows{
    Row{PageText::signInHeading,
        {"Sign in to Quillo", "Bei Quillo anmelden", "Iniciar sesión en Quillo", "Se connecter à Quillo",
         "Вход в Quillo", "登录 Quillo"}},
    Row{PageText::registerHeading,
        {"Create your Quillo account", "Ihr Quillo-Konto erstellen", "Crear su cuenta de Quillo",
         "Créer votre compte Quillo", "Создание учётной записи Quillo", "创建您的 Quillo 帐户"}},
    Row{PageText::signInLead,
        {"Use the account you have on this server.", "Verwenden Sie Ihr Konto auf diesem Server.",
         "Use la cuenta que tiene en este servidor.", "Utilisez le compte que vous avez sur ce serveur.",
         "Используйте учётную запись, которая есть у вас на этом сервере.", "请使用您在此服务器上的帐户。"}},
    Row{PageText::registerLead,
        {"Your account and your recordings stay on this server.",
         "Ihr Konto und Ihre Aufnahmen bleiben auf diesem Server.",
         "Su cuenta y sus grabaciones permanecen en este servidor.",
         "Votre compte et vos enregistrements restent sur ce serveur.",
         "Ваша учётная запись и записи остаются на этом сервере.", "您的帐户和录音都保留在此服务器上。"}},
    Row{PageText::nameLabel,
        {"Full name", "Vollständiger Name", "Nombre completo", "Nom complet", "Полное имя", "姓名"}},
    Row{PageText::optional,
        {"(optional)", "(freiwillig)", "(opcional)", "(facultatif)", "(необязательно)", "（可选）"}},
    Row{PageText::emailLabel,
        {"E-mail address", "E-Mail-Adresse", "Correo electrónico", "Adresse e-mail", "Адрес электронной почты",
         "电子邮件地址"}},
    Row{PageText::passwordLabel, {"Password", "Passwort", "Contraseña", "Mot de passe", "Пароль", "密码"}},
    Row{PageText::passwordHint,
        {"At least 10 characters.", "Mindestens 10 Zeichen.", "Al menos 10 caracteres.", "Au moins 10 caractères.",
         "Не менее 10 символов.", "至少 10 个字符。"}},
    Row{PageText::signInButton, {"Sign in", "Anmelden", "Iniciar sesión", "Se connecter", "Войти", "登录"}},
    Row{PageText::registerButton,
        {"Create account", "Konto erstellen", "Crear cuenta", "Créer le compte", "Создать учётную запись", "创建帐户"}},
    Row{PageText::haveAccount,
        {"You have an account?", "Sie haben ein Konto?", "¿Ya tiene una cuenta?", "Vous avez un compte ?",
         "Уже есть учётная запись?", "已有帐户？"}},
    Row{PageText::newHere,
        {"New here?", "Neu hier?", "¿Es nuevo aquí?", "Nouveau ici ?", "Впервые здесь?", "第一次使用？"}},
    Row{PageText::toSignIn, {"Sign in", "Anmelden", "Inicie sesión", "Se connecter", "Войдите", "登录"}},
    Row{PageText::toRegister,
        {"Create an account", "Konto erstellen", "Cree una cuenta", "Créer un compte", "Создайте учётную запись",
         "创建帐户"}},
    Row{PageText::cancel,
        {"Cancel and go back to Quillo", "Abbrechen und zurück zu Quillo", "Cancelar y volver a Quillo",
         "Annuler et revenir à Quillo", "Отменить и вернуться в Quillo", "取消并返回 Quillo"}},
    Row{PageText::error, {"Error", "Fehler", "Error", "Erreur", "Ошибка", "错误"}},
    Row{PageText::signedInHeading,
        {"You are signed in", "Sie sind angemeldet", "Ha iniciado sesión", "Vous êtes connecté", "Вы вошли",
         "您已登录"}},
    Row{PageText::accountReady,
        {"Your account is ready.", "Ihr Konto ist bereit.", "Su cuenta está lista.", "Votre compte est prêt.",
         "Учётная запись готова.", "您的帐户已就绪。"}},
    Row{PageText::goBack,
        {"Go back to Quillo to finish; your browser may ask before it opens the application. Then you can close this "
         "page.",
         "Gehen Sie zum Abschluss zurück zu Quillo; Ihr Browser fragt vielleicht, bevor er das Programm öffnet. Danach "
         "können Sie diese Seite schließen.",
         "Vuelva a Quillo para terminar; es posible que el navegador pregunte antes de abrir la aplicación. Después "
         "puede cerrar esta página.",
         "Revenez à Quillo pour terminer ; votre navigateur demandera peut-être avant d’ouvrir l’application. Vous "
         "pourrez ensuite fermer cette page.",
         "Вернитесь в Quillo, чтобы завершить вход; браузер может спросить, прежде чем открыть приложение. Затем эту "
         "страницу можно закрыть.",
         "请返回 Quillo 完成登录；浏览器在打开应用程序前可能会询问。之后即可关闭此页面。"}},
    Row{PageText::backButton,
        {"Back to Quillo", "Zurück zu Quillo", "Volver a Quillo", "Revenir à Quillo", "Вернуться в Quillo",
         "返回 Quillo"}},
    Row{PageText::refused,
        {"The e-mail address or the password is not right.", "Die E-Mail-Adresse oder das Passwort stimmt nicht.",
         "El correo electrónico o la contraseña no son correctos.",
         "L’adresse e-mail ou le mot de passe est incorrect.", "Неверный адрес электронной почты или пароль.",
         "电子邮件地址或密码不正确。"}},
    Row{PageText::busy,
        {"The server is busy.", "Der Server ist ausgelastet.", "El servidor está ocupado.", "Le serveur est occupé.",
         "Сервер занят.", "服务器繁忙。"}},
    Row{PageText::tooManyAttempts,
        {"There were too many attempts.", "Es gab zu viele Versuche.", "Hubo demasiados intentos.",
         "Il y a eu trop de tentatives.", "Слишком много попыток.", "尝试次数过多。"}},
    Row{PageText::tooManyAccounts,
        {"Too many accounts were made from your network.", "Aus Ihrem Netzwerk wurden zu viele Konten erstellt.",
         "Se crearon demasiadas cuentas desde su red.", "Trop de comptes ont été créés depuis votre réseau.",
         "Из вашей сети создано слишком много учётных записей.", "从您的网络创建的帐户过多。"}},
    Row{PageText::tryAgainIn,
        {"Try again in %1 s.", "Versuchen Sie es in %1 s erneut.", "Inténtelo de nuevo en %1 s.",
         "Réessayez dans %1 s.", "Повторите попытку через %1 с.", "请在 %1 秒后重试。"}},
    Row{PageText::emailTaken,
        {"There is an account with this e-mail address already. Sign in below instead.",
         "Mit dieser E-Mail-Adresse gibt es schon ein Konto. Melden Sie sich stattdessen unten an.",
         "Ya existe una cuenta con este correo electrónico. Inicie sesión más abajo.",
         "Un compte existe déjà avec cette adresse e-mail. Connectez-vous plutôt ci-dessous.",
         "Учётная запись с этим адресом уже есть. Войдите по ссылке ниже.",
         "此电子邮件地址已有帐户。请改为在下方登录。"}},
    Row{PageText::emailMissing,
        {"Enter your e-mail address.", "Geben Sie Ihre E-Mail-Adresse ein.", "Escriba su correo electrónico.",
         "Saisissez votre adresse e-mail.", "Введите адрес электронной почты.", "请输入您的电子邮件地址。"}},
    Row{PageText::emailInvalid,
        {"This is not an e-mail address. Check it for typing mistakes.",
         "Das ist keine E-Mail-Adresse. Prüfen Sie sie auf Tippfehler.",
         "Esto no es un correo electrónico. Compruebe si hay erratas.",
         "Ce n’est pas une adresse e-mail. Vérifiez la saisie.",
         "Это не адрес электронной почты. Проверьте, нет ли опечаток.", "这不是电子邮件地址。请检查是否有输入错误。"}},
    Row{PageText::passwordMissing,
        {"Enter your password.", "Geben Sie Ihr Passwort ein.", "Escriba su contraseña.",
         "Saisissez votre mot de passe.", "Введите пароль.", "请输入您的密码。"}},
    Row{PageText::passwordNotChosen,
        {"Choose a password.", "Wählen Sie ein Passwort.", "Elija una contraseña.", "Choisissez un mot de passe.",
         "Придумайте пароль.", "请设置密码。"}},
    Row{PageText::passwordTooLong,
        {"This password is too long; 1024 bytes are the limit.",
         "Dieses Passwort ist zu lang; 1024 Bytes sind die Grenze.",
         "Esta contraseña es demasiado larga; el límite son 1024 bytes.",
         "Ce mot de passe est trop long ; la limite est de 1024 octets.",
         "Пароль слишком длинный; предел — 1024 байта.", "此密码过长；上限为 1024 字节。"}},
    Row{PageText::passwordUntypable,
        {"This password has characters that cannot be typed; choose another.",
         "Dieses Passwort enthält Zeichen, die sich nicht tippen lassen; wählen Sie ein anderes.",
         "Esta contraseña contiene caracteres que no se pueden teclear; elija otra.",
         "Ce mot de passe contient des caractères impossibles à saisir ; choisissez-en un autre.",
         "В пароле есть символы, которые нельзя набрать; выберите другой.", "此密码含有无法键入的字符；请另选一个。"}},
    Row{PageText::passwordTooShort,
        {"Use at least 10 characters. A few words in a row are fine.",
         "Verwenden Sie mindestens 10 Zeichen. Einige Wörter hintereinander genügen.",
         "Use al menos 10 caracteres. Basta con varias palabras seguidas.",
         "Utilisez au moins 10 caractères. Quelques mots à la suite conviennent.",
         "Не менее 10 символов. Подойдут несколько слов подряд.", "请至少使用 10 个字符。几个单词连在一起也可以。"}},
    Row{PageText::passwordEasy,
        {"This password is easy to guess; choose another.",
         "Dieses Passwort ist leicht zu erraten; wählen Sie ein anderes.",
         "Esta contraseña es fácil de adivinar; elija otra.",
         "Ce mot de passe est facile à deviner ; choisissez-en un autre.",
         "Этот пароль легко угадать; выберите другой.", "此密码容易被猜到；请另选一个。"}},
    Row{PageText::passwordIsEmail,
        {"The password must not be your e-mail address. Choose another.",
         "Das Passwort darf nicht Ihre E-Mail-Adresse sein. Wählen Sie ein anderes.",
         "La contraseña no puede ser su correo electrónico. Elija otra.",
         "Le mot de passe ne doit pas être votre adresse e-mail. Choisissez-en un autre.",
         "Пароль не должен совпадать с адресом электронной почты. Выберите другой.",
         "密码不能是您的电子邮件地址。请另选一个。"}},
    Row{PageText::nameUnshowable,
        {"This name has characters that cannot be shown. Remove them.",
         "Dieser Name enthält Zeichen, die sich nicht darstellen lassen. Entfernen Sie sie.",
         "Este nombre contiene caracteres que no se pueden mostrar. Quítelos.",
         "Ce nom contient des caractères qui ne peuvent être affichés. Retirez-les.",
         "В имени есть символы, которые нельзя показать. Удалите их.", "此姓名含有无法显示的字符。请将其删除。"}},
    Row{PageText::nameTooLong,
        {"Use at most 100 characters.", "Verwenden Sie höchstens 100 Zeichen.", "Use como máximo 100 caracteres.",
         "Utilisez au plus 100 caractères.", "Не более 100 символов.", "最多使用 100 个字符。"}},
    Row{PageText::registrationClosedHeading,
        {"Registration is closed", "Die Registrierung ist geschlossen", "El registro está cerrado",
         "Les inscriptions sont fermées", "Регистрация закрыта", "注册已关闭"}},
    Row{PageText::registrationClosed,
        {"This server takes no new accounts. Ask its administrator for one, then sign in.",
         "Dieser Server nimmt keine neuen Konten an. Bitten Sie seinen Administrator um eines und melden Sie sich dann "
         "an.",
         "Este servidor no admite cuentas nuevas. Pida una a su administrador y después inicie sesión.",
         "Ce serveur n’accepte pas de nouveaux comptes. Demandez-en un à son administrateur, puis connectez-vous.",
         "Этот сервер не принимает новые учётные записи. Попросите администратора создать её, затем войдите.",
         "此服务器不接受新帐户。请向管理员申请帐户，然后登录。"}},
    Row{PageText::wrongAddressHeading,
        {"Wrong address", "Falsche Adresse", "Dirección incorrecta", "Adresse incorrecte", "Неверный адрес",
         "地址错误"}},
    Row{PageText::wrongAddress,
        {"Open this page from Quillo.", "Öffnen Sie diese Seite aus Quillo.", "Abra esta página desde Quillo.",
         "Ouvrez cette page depuis Quillo.", "Откройте эту страницу из Quillo.", "请从 Quillo 打开此页面。"}},
    Row{PageText::deadLinkHeading,
        {"This link does not work", "Dieser Link funktioniert nicht", "Este enlace no funciona",
         "Ce lien ne fonctionne pas", "Эта ссылка не работает", "此链接无效"}},
    Row{PageText::deadLink,
        {"It is incomplete or does not come from Quillo. Start the sign-in in Quillo.",
         "Er ist unvollständig oder stammt nicht von Quillo. Beginnen Sie die Anmeldung in Quillo.",
         "Está incompleto o no procede de Quillo. Inicie la sesión desde Quillo.",
         "Il est incomplet ou ne vient pas de Quillo. Commencez la connexion dans Quillo.",
         "Она неполная или создана не Quillo. Начните вход в Quillo.",
         "它不完整或并非来自 Quillo。请在 Quillo 中开始登录。"}},
    Row{PageText::failedHeading,
        {"This did not work", "Das hat nicht geklappt", "No ha funcionado", "Cela n’a pas fonctionné", "Не получилось",
         "操作未成功"}},
    Row{PageText::formDamaged,
        {"The form arrived damaged; go back and send it again.",
         "Das Formular kam beschädigt an; gehen Sie zurück und senden Sie es erneut.",
         "El formulario llegó dañado; vuelva atrás y envíelo de nuevo.",
         "Le formulaire est arrivé endommagé ; revenez en arrière et renvoyez-le.",
         "Форма пришла повреждённой; вернитесь и отправьте её снова.", "表单在传输中损坏；请返回并重新提交。"}},
    Row{PageText::formForeign,
        {"The form was not sent from this page. Start the sign-in in Quillo.",
         "Das Formular wurde nicht von dieser Seite gesendet. Beginnen Sie die Anmeldung in Quillo.",
         "El formulario no se envió desde esta página. Inicie la sesión desde Quillo.",
         "Le formulaire n’a pas été envoyé depuis cette page. Commencez la connexion dans Quillo.",
         "Форма отправлена не с этой страницы. Начните вход в Quillo.",
         "表单并非从此页面提交。请在 Quillo 中开始登录。"}},
    Row{PageText::formExpired,
        {"This page was open for too long, or your browser keeps no cookies for it. Please enter everything again.",
         "Diese Seite war zu lange geöffnet, oder Ihr Browser speichert keine Cookies für sie. Bitte geben Sie alles "
         "noch einmal ein.",
         "Esta página estuvo abierta demasiado tiempo o su navegador no guarda cookies para ella. Vuelva a escribirlo "
         "todo.",
         "Cette page est restée ouverte trop longtemps, ou votre navigateur n’enregistre pas ses cookies. Veuillez "
         "tout saisir à nouveau.",
         "Страница была открыта слишком долго, или браузер не сохраняет для неё файлы cookie. Введите всё ещё раз.",
         "此页面打开时间过长，或者您的浏览器没有为其保存 Cookie。请重新输入全部内容。"}},
    Row{PageText::serverFailedHeading,
        {"Something went wrong", "Etwas ist schiefgegangen", "Algo ha salido mal", "Une erreur s’est produite",
         "Что-то пошло не так", "出错了"}},
    Row{PageText::serverFailed,
        {"The server could not answer. Try again in a moment.",
         "Der Server konnte nicht antworten. Versuchen Sie es gleich noch einmal.",
         "El servidor no pudo responder. Inténtelo de nuevo en un momento.",
         "Le serveur n’a pas pu répondre. Réessayez dans un instant.",
         "Сервер не смог ответить. Попробуйте ещё раз чуть позже.", "服务器无法响应。请稍后重试。"}},
    Row{PageText::notFound,
        {"There is no such page on this server. Start the sign-in in Quillo.",
         "Diese Seite gibt es auf diesem Server nicht. Beginnen Sie die Anmeldung in Quillo.",
         "Esta página no existe en este servidor. Inicie la sesión desde Quillo.",
         "Cette page n’existe pas sur ce serveur. Commencez la connexion dans Quillo.",
         "Такой страницы на этом сервере нет. Начните вход в Quillo.",
         "此服务器上没有该页面。请在 Quillo 中开始登录。"}},
    Row{PageText::requestRefused,
        {"The server could not accept this request. Start the sign-in in Quillo again.",
         "Der Server konnte diese Anfrage nicht annehmen. Beginnen Sie die Anmeldung in Quillo von vorn.",
         "El servidor no pudo aceptar esta solicitud. Vuelva a iniciar la sesión desde Quillo.",
         "Le serveur n’a pas pu accepter cette demande. Recommencez la connexion dans Quillo.",
         "Сервер не смог принять этот запрос. Начните вход в Quillo заново.",
         "服务器无法接受此请求。请在 Quillo 中重新开始登录。"}},
    Row{PageText::backToQuillo,
        {"The request could not be served; Quillo says why.",
         "Die Anfrage konnte nicht beantwortet werden; Quillo nennt den Grund.",
         "No se pudo atender la solicitud; Quillo indica el motivo.",
         "La demande n’a pas pu être traitée ; Quillo indique pourquoi.",
         "Запрос не удалось выполнить; причина указана в Quillo.", "无法处理该请求；原因见 Quillo。"}},
};

consteval bool isComplete() {
    for (size_t at = 0; at < rows.size(); ++at)
        if (rows[at].text != static_cast<PageText>(at) ||
            std::ranges::any_of(rows[at].words, [](auto words) { return words.empty(); }))
            return false;
    return rows.size() == static_cast<size_t>(PageText::backToQuillo) + 1;
}
static_assert(isComplete(), "Every text needs its row, in the order of PageText, with words in every language.");

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// The weight of "de;q=0.8": 0 to 1, 1 without one, 0 for an invalid one.
double weightOf(std::string_view range) {
    const auto parameter = range.find(';');
    if (parameter == range.npos)
        return 1;
    const auto weight = trimmed(range.substr(parameter + 1));
    double value = 0;
    if (weight.starts_with("q=") || weight.starts_with("Q="))
        std::from_chars(weight.data() + 2, weight.data() + weight.size(), value);
    return value;
}

} // namespace

PageLanguage pageLanguage(std::string_view accepted) {
    PageLanguage best;
    double bestWeight = 0;
    while (!accepted.empty()) {
        const auto comma = std::min(accepted.find(','), accepted.size());
        const auto range = trimmed(accepted.substr(0, comma));
        accepted.remove_prefix(std::min(comma + 1, accepted.size()));
        std::string code(range.substr(0, range.find_first_of("-; \t")));
        std::ranges::transform(code, code.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
        const auto* found = std::ranges::find(languages, code);
        if (const double weight = weightOf(range); found != languages.end() && weight > bestWeight) {
            best.code = *found;
            bestWeight = weight;
        }
    }
    return best;
}

std::string pageText(PageText text, PageLanguage language, std::string_view value) {
    const auto* found = std::ranges::find(languages, language.code);
    const auto column = found == languages.end() ? 0 : static_cast<size_t>(found - languages.begin());
    std::string words(rows[static_cast<size_t>(text)].words[column]);
    if (const auto at = words.find("%1"); at != words.npos)
        words.replace(at, 2, value);
    return words;
}

} // namespace quillo::server
