# driver: overwrites or reads a whole device.
