#include "Core/JsonNesting.h"

namespace quillo {

bool isNestedTooDeep(const QByteArray& json, int deepest) {
    int depth = 0;
    bool inText = false;
    bool escaped = false;
    for (const char character : json) {
        if (inText) {
            if (escaped)
                escaped = false;
            else if (character == '\\')
                escaped = true;
            else if (character == '"')
                inText = false;
        } else if (character == '"') {
            inText = true;
        } else if (character == '{' || character == '[') {
            if (++depth > deepest)
                return true;
        } else if (character == '}' || character == ']') {
            --depth;
        }
    }
    return false;
}

} // namespace quillo
