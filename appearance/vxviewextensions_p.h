// SPDX-FileCopyrightText: 2026 Quillet developers
// SPDX-License-Identifier: MIT
#pragma once

class QWidget;

// What a platform provides for the visual-effect view.
namespace VXViewExtensionsPlatform {

// Whether the desktop's compositor blurs what lies behind a translucent
// window that asks for it.
bool blurBehindAvailable();
// Asks the compositor to blur behind the whole of that top-level window.
void enableBlurBehind(QWidget *window);

} // namespace VXViewExtensionsPlatform
