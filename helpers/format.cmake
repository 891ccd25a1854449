# format: gives a device a bootable FAT32 partition that shows a picture.
pkg_check_modules(FDISK REQUIRED IMPORTED_TARGET fdisk>=2.35)
pkg_check_modules(BLKID REQUIRED IMPORTED_TARGET blkid)

# The name "format" is left to a target that formats the source text.
add_executable(format_helper
    child_process.cpp
    child_process.h
    format_content.cpp
    format_content.h
    format_file_system.cpp
    format_layout.cpp
    format_layout.h
    format_main.cpp
    format_medium.h
    format_partition.cpp
    format_request.cpp
    format_request.h
    format_run.cpp
    format_run.h)
target_link_libraries(format_helper PRIVATE vantrelle_helper_common PkgConfig::FDISK PkgConfig::BLKID)
set_target_properties(format_helper PROPERTIES
    OUTPUT_NAME format
    RUNTIME_OUTPUT_DIRECTORY ${VANTRELLE_HELPER_OUTPUT_DIR})

# The boot images, from GRUB's modules for each firmware (packages grub-pc-bin,
# grub-efi-amd64-bin, grub-efi-ia32-bin).
find_program(GRUB_MKIMAGE grub-mkimage REQUIRED)
set(GRUB_DIRECTORY /usr/lib/grub CACHE PATH "Where GRUB's modules lie, a folder for each platform")
set(boot_config ${CMAKE_CURRENT_SOURCE_DIR}/boot/show-picture.cfg)
set(boot_check ${CMAKE_CURRENT_SOURCE_DIR}/boot/check-size.cmake)
set(boot_output ${VANTRELLE_HELPER_OUTPUT_DIR}/boot)
# The modules behind the commands of the configuration ("normal" has "clear"), and what
# reads the partition and the picture.
set(boot_modules
    all_video fat gfxterm gfxterm_background normal part_msdos play png reboot terminal)

# add_boot_image(FILE PLATFORM PREFIX [MODULE...]): PREFIX tells GRUB where it came from;
# BIOS tells it the drive and UEFI the partition.
function(add_boot_image file platform prefix)
    if(NOT EXISTS ${GRUB_DIRECTORY}/${platform}/kernel.img)
        message(FATAL_ERROR "GRUB's modules for ${platform} are missing in ${GRUB_DIRECTORY}")
    endif()
    if(platform STREQUAL i386-pc)
        set(check COMMAND ${CMAKE_COMMAND} -DFILE=${boot_output}/${file} -P ${boot_check})
    endif()
    add_custom_command(OUTPUT ${boot_output}/${file}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${boot_output}
        COMMAND ${GRUB_MKIMAGE} -O ${platform} -d ${GRUB_DIRECTORY}/${platform} -p ${prefix}
            -c ${boot_config} -o ${boot_output}/${file} ${boot_modules} ${ARGN}
        ${check}
        DEPENDS ${boot_config} ${boot_check}
        VERBATIM)
endfunction()
add_boot_image(core.img i386-pc "(,msdos1)/" biosdisk)
add_boot_image(bootx64.efi x86_64-efi /)
add_boot_image(bootia32.efi i386-efi /)

add_custom_command(OUTPUT ${boot_output}/boot.img
    COMMAND ${CMAKE_COMMAND} -E make_directory ${boot_output}
    COMMAND ${CMAKE_COMMAND} -E copy ${GRUB_DIRECTORY}/i386-pc/boot.img ${boot_output}/boot.img
    VERBATIM)
set(boot_images ${boot_output}/boot.img ${boot_output}/core.img
    ${boot_output}/bootx64.efi ${boot_output}/bootia32.efi)
add_custom_target(boot_images ALL DEPENDS ${boot_images})
add_dependencies(format_helper boot_images)

install(TARGETS format_helper RUNTIME DESTINATION ${VANTRELLE_INSTALL_DIR}/lib)
install(FILES ${boot_images} DESTINATION ${VANTRELLE_INSTALL_DIR}/lib/boot)
