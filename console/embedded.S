// See embedded.h.
        .section .rodata
        .global modla_reference, modla_prelude, modla_header
modla_reference:
        .incbin MODLA_REFERENCE
        .byte 0
modla_prelude:
        .incbin MODLA_PRELUDE
        .byte 0
modla_header:
        .incbin MODLA_HEADER
        .byte 0
        .section .note.GNU-stack, "", @progbits
