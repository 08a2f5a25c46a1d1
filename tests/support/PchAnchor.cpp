// Gives the precompiled-header library of the test suites one translation unit.
