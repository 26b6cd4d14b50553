#pragma once
// The text that names this machine in Clip.originDeviceID and SyncDevice.deviceID.
//
// It is an application-specific hash of /etc/machine-id (HMAC-SHA256 keyed by the machine id over
// Tamarind's own application id, shaped as a version-4 UUID, as systemd recommends), so the
// machine's own id never travels in Tamarind's data and is the same across runs and reinstalls.
// Without a readable machine id it is a UUID kept in the settings under
// "machineIdentifier.fallback", made once and logged. The text is upper-case canonical UUID form.
//
// The caller computes it once per process and hands it on. Main thread only (it may write the
// fallback to the settings).

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Defaults.h"

namespace tamarind {

inline constexpr const char* kMachineIdentifierFallbackKey = "machineIdentifier.fallback";
inline constexpr const char* kSystemMachineIdFile = "/etc/machine-id";

// The application-specific id for the text of a machine-id file (32 hex digits and a newline);
// absent when the text is no machine id.
std::optional<std::string> appSpecificMachineID(std::string_view machineIdText);

std::string machineID(Defaults& defaults, const std::filesystem::path& machineIdFile = kSystemMachineIdFile);

}  // namespace tamarind
