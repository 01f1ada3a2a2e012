# Filled in with the install rules of the library, its headers, its package files and the tool.
