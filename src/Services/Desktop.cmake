list(APPEND SERVICES_SOURCES
  HotkeyConfig.cpp HotkeyService.cpp HotkeyServiceSource.cpp InjectionRules.cpp KeyCodeLabels.cpp LaunchAtLogin.cpp MetricsService.cpp PermissionService.cpp
  SettingsSchema.cpp TextInjectionService.cpp TextInjectionServiceProtocol.cpp UserSettings.cpp)
list(APPEND SERVICES_MOC UserSettings.h)
