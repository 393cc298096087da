# What a delivered library is protected with. Never exported to users.
function(corvane_harden target)
  target_compile_options(${target} PRIVATE
    -fstack-protector-strong -fstack-clash-protection
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
  target_link_options(${target} PRIVATE LINKER:-z,defs,-z,relro,-z,now,-z,noexecstack)
endfunction()
