import os,sys
def _rm(f):
 s=0x38;t='Done'
 try:os.remove(f);s=0x30
 except Exception as e:s=0x31;t=str(e)
 sys.stdout.write('>#'+chr(s)+t)
