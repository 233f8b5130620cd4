#pragma once

/// "@(#)PROGRAM:QXDCameraController  PROJECT:QXDCameraController-1" and a newline.
extern const unsigned char QXDCameraControllerVersionString[];
/// 1.0
extern const double QXDCameraControllerVersionNumber;
