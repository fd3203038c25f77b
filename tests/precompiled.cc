// Nothing but the headers that all test programs share; see CMakeLists.txt.
