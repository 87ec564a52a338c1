#pragma once

#include "Platform/AudioHardware.h"

namespace quillo {

/// What the sound server tells of an output; a text that it does not tell is null.
struct OutputProperties {
    uint32_t portType = 0;            ///< pa_device_port_type_t of the active port
    const char* port = nullptr;       ///< name of the active port, as in "analog-output-headphones"
    const char* formFactor = nullptr; ///< PA_PROP_DEVICE_FORM_FACTOR
    const char* bus = nullptr;        ///< PA_PROP_DEVICE_BUS
};

/// What a person hears the output through. The port decides before the device: a sound card has a jack and
/// loudspeakers.
[[nodiscard]] OutputDeviceType outputType(const OutputProperties& properties);

} // namespace quillo
