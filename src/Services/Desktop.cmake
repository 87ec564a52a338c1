list(APPEND SERVICES_SOURCES SettingsSchema.cpp UserSettings.cpp)
list(APPEND SERVICES_MOC UserSettings.h)
