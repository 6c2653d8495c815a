# What cmake --install puts where, in two components that are Debian's packages too: agent and tools.

# A system-wide installation is configured in /etc, as the FHS wants it, and not below its prefix.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?$")
    set(CMAKE_INSTALL_SYSCONFDIR /etc CACHE PATH "Where the configuration goes")
endif()
include(GNUInstallDirs)
set(VEX_CONFIG_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/vex)
set(VEX_LIBEXEC_DIR ${CMAKE_INSTALL_FULL_LIBEXECDIR}/vex)
set(VEX_UNIT_DIR lib/systemd/system CACHE PATH "Where systemd units go")

set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(generated ${CMAKE_BINARY_DIR}/packaging)

install(TARGETS vex-agent vex-hotplug RUNTIME COMPONENT agent)
install(TARGETS vex-client vex-uesim vex-capture RUNTIME COMPONENT tools)
install(TARGETS vex-fleet vex-forward RUNTIME COMPONENT tools)

# The service's configuration is config/vex.cfg but for these lines.
function(vex_service_config FROM TO)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${FROM})
    file(READ ${FROM} text)
    foreach(edit
        "as ./config/vex.cfg|as ${VEX_CONFIG_DIR}/vex.cfg"
        "\ndebugfilename = vex\n|\ndebugfilename = /var/log/vex/vex\n"
        "\n#LogMaxSize = |\nLogMaxSize = "
        "\n#ListenAddress = |\nListenAddress = "
        "\n#TapSocket = |\nTapSocket = ")
        string(REPLACE "|" ";" edit "${edit}")
        list(GET edit 0 old)
        list(GET edit 1 new)
        string(FIND "${text}" "${old}" at)
        if(at EQUAL -1)
            message(FATAL_ERROR "${FROM} has no line for the service's configuration: ${old}")
        endif()
        string(REPLACE "${old}" "${new}" text "${text}")
    endforeach()
    file(WRITE ${TO} "${text}")
endfunction()
vex_service_config(${CMAKE_SOURCE_DIR}/config/vex.cfg ${generated}/vex.cfg)
install(FILES ${generated}/vex.cfg config/hotplug.conf DESTINATION ${VEX_CONFIG_DIR} COMPONENT agent)

install(FILES config/forward.conf DESTINATION ${VEX_CONFIG_DIR} COMPONENT tools)

# Units: one hardening for all.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaging}/systemd/hardening.inc)
file(READ ${packaging}/systemd/hardening.inc VEX_HARDENING)
foreach(row agent:vex-agent agent:vex-hotplug tools:vex-capture tools:vex-forward)
    string(REPLACE ":" ";" row ${row})
    list(GET row 0 component)
    list(GET row 1 program)
    configure_file(${packaging}/systemd/${program}.service.in ${generated}/${program}.service @ONLY)
    install(FILES ${generated}/${program}.service DESTINATION ${VEX_UNIT_DIR} COMPONENT ${component})
endforeach()
install(FILES ${packaging}/systemd/sysusers.conf DESTINATION lib/sysusers.d RENAME vex-agent.conf COMPONENT agent)
install(FILES ${packaging}/systemd/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME vex-agent.conf COMPONENT agent)

configure_file(${packaging}/udev/70-vex-modem.rules.in ${generated}/70-vex-modem.rules @ONLY)
configure_file(${packaging}/udev/names-modem.in ${generated}/names-modem @ONLY)
install(FILES ${generated}/70-vex-modem.rules DESTINATION lib/udev/rules.d COMPONENT agent)
install(PROGRAMS ${generated}/names-modem DESTINATION ${VEX_LIBEXEC_DIR} COMPONENT agent)

# Wireshark: the dissector, and vex-capture as a capture interface.
set(wireshark ${CMAKE_INSTALL_LIBDIR}/wireshark)
install(FILES ${CMAKE_BINARY_DIR}/wireshark/vex.lua DESTINATION ${wireshark}/plugins COMPONENT tools)
file(RELATIVE_PATH capture ${CMAKE_INSTALL_FULL_LIBDIR}/wireshark/extcap ${CMAKE_INSTALL_FULL_BINDIR}/vex-capture)
file(CREATE_LINK ${capture} ${generated}/vex-capture SYMBOLIC)
install(FILES ${generated}/vex-capture DESTINATION ${wireshark}/extcap COMPONENT tools)

# bash loads a completion by the name of its program.
set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
foreach(row agent:vex-agent agent:vex-hotplug tools:vex-client tools:vex-uesim tools:vex-capture
        tools:vex-fleet tools:vex-forward)
    string(REPLACE ":" ";" row ${row})
    list(GET row 0 component)
    list(GET row 1 program)
    install(FILES ${packaging}/completion/vex.bash DESTINATION ${completions} RENAME ${program} COMPONENT ${component})
endforeach()

include(ManPages)
