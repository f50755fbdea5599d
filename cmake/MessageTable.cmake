# Builds the built-in message table from data/messages.txt: a C++ source compiled into
# the library, and the same block as tessel_link.msg for deployers who translate it.
set(TL_MESSAGE_ROWS ${PROJECT_SOURCE_DIR}/data/messages.txt)
set(TL_MESSAGE_CPP ${TL_GENERATED_DIR}/message_block.cpp)
set(TL_MESSAGE_MSG ${PROJECT_BINARY_DIR}/tessel_link.msg)
add_custom_command(
    OUTPUT ${TL_MESSAGE_CPP} ${TL_MESSAGE_MSG}
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/msgtable/msgtable.py
            ${TL_MESSAGE_ROWS} ${TL_MESSAGE_CPP} ${TL_MESSAGE_MSG}
    DEPENDS ${TL_MESSAGE_ROWS} ${PROJECT_SOURCE_DIR}/tools/msgtable/msgtable.py
    COMMENT "Building the message table"
    VERBATIM)
list(APPEND TL_GENERATED_SOURCES ${TL_MESSAGE_CPP})
# The block as a file of its own, for deployers: build/<preset>/tessel_link.msg.
add_custom_target(tessel_link_msg ALL DEPENDS ${TL_MESSAGE_MSG})
