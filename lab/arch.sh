# What differs between the architectures. Sourced with the architecture as argument; sets
# kernel_arch, cross, kernel_image, image_path, qemu, console, busybox_arch.
case ${1:-} in
arm)
  kernel_arch=arm
  cross=arm-linux-gnueabihf-
  kernel_image=zImage
  image_path=arch/arm/boot/zImage
  qemu=(qemu-system-arm -M virt,highmem=off -cpu cortex-a15)
  console=ttyAMA0
  busybox_arch=armhf
  elf_machine=ARM
  ;;
x86_64)
  kernel_arch=x86_64
  cross=
  kernel_image=bzImage
  image_path=arch/x86/boot/bzImage
  qemu=(qemu-system-x86_64 -M q35)
  console=ttyS0
  busybox_arch=amd64
  elf_machine="Advanced Micro Devices X86-64"
  ;;
*)
  echo "lab: no architecture '${1:-}' (arm, x86_64, and -debug of each)" >&2
  exit 2
  ;;
esac
