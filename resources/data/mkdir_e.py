import os
try:_t=os.stat($dir)[0]
except OSError:_t=0
if _t!=0x4000:os.mkdir($dir)
