# The headers below PREFIX are those of the list PUBLIC, and no others.
file(GLOB_RECURSE installed "${PREFIX}/*.hpp" "${PREFIX}/*.h")
set(missing ${PUBLIC})
list(REMOVE_ITEM missing ${installed})
set(private ${installed})
list(REMOVE_ITEM private ${PUBLIC})
if(missing OR private OR NOT installed)
  message(FATAL_ERROR "missing: ${missing}\nnot public: ${private}")
endif()
