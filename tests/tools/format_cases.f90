! Edits the cases of a file as format_cases does, with the editing of the compiler's own library.
program format_cases
  implicit none
  character(len=200) :: path
  character(len=1) :: letter
  character(len=20) :: text
  character(len=64) :: field
  character(len=8) :: word
  integer :: w, d, status
  integer(8) :: bits
  call get_command_argument(1, path)
  open (10, file=path, status='old', action='read')
  do
    read (10, *, iostat=status) letter, w, d, bits
    if (status /= 0) exit
    select case (letter)
    case ('I')
      write (text, '("(I",I0,")")') w
      write (field, text) bits
    case ('A')
      write (text, '("(A",I0,")")') w
      word = transfer(bits, word)
      write (field, text) word
    case default
      write (text, '("(",A1,I0,".",I0,")")') letter, w, d
      write (field, text) transfer(bits, 0.0d0)
    end select
    write (*, '(A,I0,".",I0," ",I0," |",A,"|")') letter, w, d, bits, field(1:w)
  end do
end program format_cases
