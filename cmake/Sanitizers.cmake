# VELORUM_SANITIZE=address,undefined builds everything with ASan+UBSan;
# VELORUM_SANITIZE=thread with TSan. Errors abort so that tests fail on them.
if(VELORUM_SANITIZE)
  add_compile_options(-fsanitize=${VELORUM_SANITIZE} -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${VELORUM_SANITIZE})
  if(VELORUM_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
