# format: gives a device a bootable FAT32 partition that shows a picture.
