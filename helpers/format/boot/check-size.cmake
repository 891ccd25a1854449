# Ends the build when FILE, the boot code for BIOS, does not fit between the sector of the
# partition table and the partition.
set(first_track_bytes 1048576)
set(sector_bytes 512)
file(SIZE ${FILE} size)
math(EXPR room "${first_track_bytes} - ${sector_bytes}")
if(size GREATER room)
    file(REMOVE ${FILE})
    message(FATAL_ERROR "${FILE} has ${size} bytes, more than the ${room} before the partition")
endif()
