// Finding the COM port of the terminal by the device description of its port.
#pragma once

// Marks in `table` (256 bytes, zeroed by the caller), per COM number: 0x02 for a qualifying
// port, 0x01 as well when its description equals `name` (ignoring case). Returns 1 when the
// whole device list was walked.
int ScanPorts(const char* name, unsigned char* table);
