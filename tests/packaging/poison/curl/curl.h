#error "a public header of the library reached libcurl's header"
