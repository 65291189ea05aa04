// SPDX-License-Identifier: MIT

// Declarations of IOKit's serial keys, for cross building: only what the product uses.

#ifndef IOKIT_SERIAL_IOSERIALKEYS_H
#define IOKIT_SERIAL_IOSERIALKEYS_H

#define kIOSerialBSDServiceValue "IOSerialBSDClient"
#define kIOSerialBSDTypeKey      "IOSerialBSDClientType"
#define kIOSerialBSDAllTypes     "IOSerialStream"
#define kIOCalloutDeviceKey      "IOCalloutDevice"

#endif
