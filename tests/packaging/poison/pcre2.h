#error "a public header of the library reached PCRE2's header"
