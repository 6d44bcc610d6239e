# Files that `cmake --install` installs. The Debian packages are built from them.
include(GNUInstallDirs)

set(doc_folder ${CMAKE_INSTALL_DATADIR}/doc)
set(completion_folder ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

install(TARGETS TavrikDaemon DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(FILES docs/man/TavrikDaemon.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(DIRECTORY docs/ DESTINATION ${doc_folder}/tavrikdaemon
        PATTERN man EXCLUDE PATTERN design.md EXCLUDE
        PATTERN simulator.md EXCLUDE PATTERN recording.md EXCLUDE)
install(DIRECTORY examples monitoring DESTINATION ${doc_folder}/tavrikdaemon)

install(TARGETS tavrikctl DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/man/tavrikctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/completion/tavrikctl DESTINATION ${completion_folder})

install(TARGETS tavrikweb DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY web/page/ DESTINATION ${CMAKE_INSTALL_DATADIR}/tavrikweb)
install(FILES docs/man/tavrikweb.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# pellix-sim looks for its preload library in its own folder, so it is installed there and called
# through a symbolic link.
set(simulator_folder ${CMAKE_INSTALL_LIBDIR}/pellix-sim)
install(TARGETS pellix-sim pellix-sim-preload DESTINATION ${simulator_folder})
file(RELATIVE_PATH simulator_path ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_FULL_LIBDIR}/pellix-sim/pellix-sim)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/installed)
file(CREATE_LINK ${simulator_path} ${PROJECT_BINARY_DIR}/installed/pellix-sim SYMBOLIC)
install(FILES ${PROJECT_BINARY_DIR}/installed/pellix-sim DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/man/pellix-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/simulator.md docs/recording.md DESTINATION ${doc_folder}/pellix-sim)
install(FILES packaging/completion/pellix-sim DESTINATION ${completion_folder})
