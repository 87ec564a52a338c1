#include "Platform/Linux/PulseAudio/OutputType.h"

#include <pulse/def.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace quillo {

namespace {

enum class Worn { onHead, inRoom, unknown };

Worn byPortType(uint32_t type) {
    switch (type) {
    case PA_DEVICE_PORT_TYPE_HEADPHONES:
    case PA_DEVICE_PORT_TYPE_HEADSET:
    case PA_DEVICE_PORT_TYPE_HANDSET:
    case PA_DEVICE_PORT_TYPE_EARPIECE:
        return Worn::onHead;
    case PA_DEVICE_PORT_TYPE_SPEAKER:
    case PA_DEVICE_PORT_TYPE_LINE: // a line output has no headphones behind it
    case PA_DEVICE_PORT_TYPE_SPDIF:
    case PA_DEVICE_PORT_TYPE_HDMI:
    case PA_DEVICE_PORT_TYPE_TV:
    case PA_DEVICE_PORT_TYPE_PORTABLE:
    case PA_DEVICE_PORT_TYPE_CAR:
    case PA_DEVICE_PORT_TYPE_HIFI:
        return Worn::inRoom;
    default: // a hands-free profile is spoken by headsets, cars and speakerphones
        return Worn::unknown;
    }
}

Worn byPortName(const char* name) {
    if (!name)
        return Worn::unknown;
    const auto contains = [name](std::string_view word) { return std::string_view(name).find(word) != word.npos; };
    if (contains("headphone") || contains("headset") || contains("handset"))
        return Worn::onHead;
    if (contains("speaker") || contains("lineout") || contains("hdmi") || contains("iec958"))
        return Worn::inRoom;
    return Worn::unknown;
}

Worn byFormFactor(const char* text) {
    const std::string_view factor(text ? text : "");
    const auto isOneOf = [factor](std::initializer_list<std::string_view> factors) {
        return std::find(factors.begin(), factors.end(), factor) != factors.end();
    };
    if (isOneOf({"headphone", "headset", "handset"}))
        return Worn::onHead;
    if (isOneOf({"internal", "speaker", "portable", "car", "hifi", "tv", "computer"}))
        return Worn::inRoom;
    return Worn::unknown;
}

Worn worn(const OutputProperties& properties) {
    for (const auto answer :
         {byPortType(properties.portType), byPortName(properties.port), byFormFactor(properties.formFactor)})
        if (answer != Worn::unknown)
            return answer;
    return Worn::unknown;
}

} // namespace

OutputDeviceType outputType(const OutputProperties& properties) {
    const bool isBluetooth = properties.bus && std::string_view(properties.bus) == "bluetooth";
    switch (worn(properties)) {
    case Worn::inRoom:
        return OutputDeviceType::speakers;
    case Worn::onHead:
        return isBluetooth ? OutputDeviceType::bluetooth : OutputDeviceType::headphones;
    case Worn::unknown:
        break;
    }
    return isBluetooth ? OutputDeviceType::bluetooth : OutputDeviceType::unknown;
}

} // namespace quillo
