// SPDX-License-Identifier: MIT

// Stand-in for Darwin's <IOKit/serial/IOSerialKeys.h>: only what the product uses.

#ifndef HOST_IOKIT_IOSERIALKEYS_H
#define HOST_IOKIT_IOSERIALKEYS_H

#define kIOSerialBSDServiceValue "IOSerialBSDClient"      // the class of serial line services
#define kIOSerialBSDTypeKey      "IOSerialBSDClientType"  // property: kind of line
#define kIOSerialBSDAllTypes     "IOSerialStream"         // its value that stands for every kind
#define kIOCalloutDeviceKey      "IOCalloutDevice"        // property: path of the call-out device

#endif
