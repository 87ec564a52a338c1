#include "Core/NotificationCenter.h"

namespace quillo {

NotificationCenter& NotificationCenter::shared() {
    static NotificationCenter center;
    return center;
}

} // namespace quillo
