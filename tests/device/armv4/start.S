// Where a program on bare Linux begins: no C library of Linux's stands under it, and no processor later than ARMv4 is
// needed. The kernel leaves the number of arguments and the arguments on the stack.
	.syntax unified
	.arm
	.text
	.global _start
	.type _start, %function
_start:
	mov fp, #0
	ldr r4, [sp]
	add r5, sp, #4
	bic sp, sp, #7
	bl __libc_init_array
	mov r0, r4
	mov r1, r5
	bl main
	b exit
	.size _start, . - _start

// The kernel's calling convention: number in r7, arguments from r0 on; here all of them from r0 on, the number last of
// seven. Returns what the kernel does: from -4095 to -1 an error number's negative.
	.global linux_call
	.type linux_call, %function
linux_call:
	push {r4, r5, r6, r7, r8, lr}
	ldr r4, [sp, #24]
	ldr r5, [sp, #28]
	ldr r7, [sp, #32]
	svc #0
	pop {r4, r5, r6, r7, r8, lr}
	mov pc, lr
	.size linux_call, . - linux_call

// Where the thread's own variables lie. Compiled code expects every register but r0 to be left alone.
	.global __aeabi_read_tp
	.type __aeabi_read_tp, %function
__aeabi_read_tp:
	ldr r0, 1f
	mov pc, lr
1:	.word thread_block
	.size __aeabi_read_tp, . - __aeabi_read_tp

	.section .note.GNU-stack, "", %progbits
