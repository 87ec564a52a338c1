list(APPEND SERVICES_SOURCES HotkeyConfig.cpp HotkeyService.cpp KeyCodeLabels.cpp SettingsSchema.cpp UserSettings.cpp)
list(APPEND SERVICES_MOC UserSettings.h)
