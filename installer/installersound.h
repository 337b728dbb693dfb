// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

namespace InstallerSound {
// The completion sound "Done" at the alert volume on the alert device.
void playDone();
} // namespace InstallerSound
