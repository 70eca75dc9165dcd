// Where the camera keeps what the service shares with its other programs. CMake's options of these names
// change the folders; psia-rights and the set-ups follow them.
#pragma once

namespace psia {

/// SQLite puts the journal of a database beside it.
inline constexpr const char* kSettingsDirectory = PSIA_SETTINGS_DIR;
inline constexpr const char* kConfigurationDatabase = PSIA_SETTINGS_DIR "/morvid.db";
inline constexpr const char* kDefaultsDirectory = PSIA_SETTINGS_DIR "/conf";
inline constexpr const char* kDefaultsDatabase = PSIA_SETTINGS_DIR "/conf/default.db";

/// Exports, which the daemons name, and uploads.
inline constexpr const char* kExchangeDirectory = PSIA_EXCHANGE_DIR;
inline constexpr const char* kUploadedConfiguration = PSIA_EXCHANGE_DIR "/psia_config.dat";

/// The serial number: 32 bytes from byte 256.
inline constexpr const char* kFactoryData = PSIA_FACTORY_DATA;

}  // namespace psia
