#pragma once

#include "Accounts/Credentials.h"
#include "Pages/PageTexts.h"

namespace quillo::server {

/// What the pages say about a refused password or name.
constexpr PageText pageTextOf(Objection objection) {
    switch (objection) {
    case Objection::passwordNotChosen:
        return PageText::passwordNotChosen;
    case Objection::passwordTooLong:
        return PageText::passwordTooLong;
    case Objection::passwordUntypable:
        return PageText::passwordUntypable;
    case Objection::passwordTooShort:
        return PageText::passwordTooShort;
    case Objection::passwordEasy:
        return PageText::passwordEasy;
    case Objection::passwordIsEmail:
        return PageText::passwordIsEmail;
    case Objection::nameUnshowable:
        return PageText::nameUnshowable;
    case Objection::nameTooLong:
        break;
    }
    return PageText::nameTooLong;
}

} // namespace quillo::server
