# The processor that the library needs, as a note for the dynamic loader: one with SSE2.  On a lesser one dlopen of
# glibc (2.33 or later) fails with "CPU ISA level is lower than required" before any code of the library runs.
    .section .note.gnu.property, "a", @note
    .p2align 2
    .long 4, 12, 5          # bytes of the name, bytes of the contents, NT_GNU_PROPERTY_TYPE_0
    .asciz "GNU"
    .long 0xc0008002, 4, 1  # GNU_PROPERTY_X86_ISA_1_NEEDED, 4 bytes, GNU_PROPERTY_X86_ISA_1_BASELINE
    .section .note.GNU-stack, "", @progbits
