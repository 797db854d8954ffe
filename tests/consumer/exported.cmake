# cmake -P exported.cmake HEADER...: whatever a header declares and does not define is marked as exported, or is a member
# of a class that is marked.
cmake_minimum_required(VERSION 3.25)

# The function or the object that the line declares, without its definition, or nothing.
function(declared line result)
  set(declaration "^ *[A-Za-z~:][^={}]*\\)[a-z ]*@$")
  set(object "^ *(static|extern) [A-Za-z][^={}()]*@$")
  set(${result} NO PARENT_SCOPE)
  if((line MATCHES "${declaration}" OR line MATCHES "${object}") AND NOT line MATCHES "^ *(VARNEL_API|static_assert|using|return)")
    set(${result} YES PARENT_SCOPE)
  endif()
endfunction()

function(check file)
  file(READ ${file} text)
  string(REGEX REPLACE "[][]" "" text "${text}") # brackets and semicolons mean something in lists
  string(REGEX REPLACE "\n *(//|#)[^\n]*" "" text "${text}")
  string(REGEX REPLACE "([(,=])\n +" "\\1 " text "${text}")
  string(REGEX REPLACE ";( *//[^\n]*)?\n" "@\n" text "${text}")
  string(REPLACE ";" "@" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  # Classes by the depth of their members: what stands at the margin or in a class that is not marked needs its own mark.
  set(class_0 "at the margin")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "[^ ].*" "" margin "${line}")
    string(LENGTH "${margin}" depth)
    math(EXPR below "${depth} + 2")
    if(line MATCHES "^ *(template <.*> )?(class|struct|union) VARNEL_API [^@]*{$")
      set(class_${below} "")
    elseif(line MATCHES "^ *(template <.*> )?(class|struct|union) ([A-Za-z]+)[^@]*{$")
      set(class_${below} "of ${CMAKE_MATCH_3}")
    elseif(line MATCHES "[^ }].*{$") # the body of a function
      set(class_${below} "")
    endif()
    if(line MATCHES "^namespace|^extern \"C\"")
      continue()
    endif()
    declared("${line}" is_declaration)
    if(is_declaration AND class_${depth})
      message(FATAL_ERROR "${file} declares what is not exported, ${class_${depth}}: ${line}")
    endif()
  endforeach()
endfunction()

math(EXPR last "${CMAKE_ARGC} - 1")
foreach(i RANGE 3 ${last})
  check(${CMAKE_ARGV${i}})
endforeach()
