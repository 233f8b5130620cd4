#include "QXDCameraControllerVersion.h"

const unsigned char QXDCameraControllerVersionString[] =
    "@(#)PROGRAM:QXDCameraController  PROJECT:QXDCameraController-1\n";
const double QXDCameraControllerVersionNumber = 1.0;
