# Man pages, each from one source: packaging/man/NAME.SECTION.adoc, and vex.cfg(5) from docs/configuration.md.
find_program(ASCIIDOCTOR asciidoctor)
if(NOT ASCIIDOCTOR)
    message(STATUS "asciidoctor isn't installed: no man pages")
    return()
endif()

set(man ${generated}/man)
set(man_pages "")
file(MAKE_DIRECTORY ${man})

# vex_man(PAGE SOURCE COMPONENT): PAGE is NAME.SECTION.
function(vex_man PAGE SOURCE COMPONENT)
    add_custom_command(OUTPUT ${man}/${PAGE}
        COMMAND ${ASCIIDOCTOR} -b manpage -a "manmanual=Vex" -a "mansource=Vex ${PROJECT_VERSION}" --failure-level WARN
                -o ${man}/${PAGE} ${SOURCE}
        DEPENDS ${SOURCE}
        VERBATIM)
    set(man_pages ${man_pages} ${man}/${PAGE} PARENT_SCOPE)
    string(REGEX REPLACE "^.*\\." "" section ${PAGE})
    install(FILES ${man}/${PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${COMPONENT})
endfunction()

set(to_adoc ${packaging}/man/configuration.awk)
set(configuration ${CMAKE_SOURCE_DIR}/docs/configuration.md)
add_custom_command(OUTPUT ${man}/vex.cfg.5.adoc
    COMMAND awk -f ${to_adoc} ${configuration} > ${man}/vex.cfg.5.adoc
    DEPENDS ${to_adoc} ${configuration}
    VERBATIM)
vex_man(vex.cfg.5 ${man}/vex.cfg.5.adoc agent)
foreach(page vex-agent.8 vex-hotplug.8 vex-hotplug.conf.5)
    vex_man(${page} ${packaging}/man/${page}.adoc agent)
endforeach()
foreach(page vex-client.1 vex-uesim.1 vex-capture.1)
    vex_man(${page} ${packaging}/man/${page}.adoc tools)
endforeach()
vex_man(vex-fleet.1 ${packaging}/man/vex-fleet.1.adoc tools)
vex_man(vex-forward.8 ${packaging}/man/vex-forward.8.adoc tools)
add_custom_target(vex-man ALL DEPENDS ${man_pages})
