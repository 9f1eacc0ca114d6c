# A mesh file opened by the script module becomes a document; saved, opened
# and saved again it gives the same bytes.
import sys

import tez

mesh, work = sys.argv[1], sys.argv[2]
tez.open(mesh)
tez.save_as(work + '/opened-mesh.mvne')
tez.open(work + '/opened-mesh.mvne')
tez.save_as(work + '/opened-mesh-again.mvne')
with open(work + '/opened-mesh.mvne', 'rb') as f:
    first = f.read()
with open(work + '/opened-mesh-again.mvne', 'rb') as f:
    second = f.read()
if first != second or len(first) < 1000:
    raise SystemExit('the documents differ')
print('same bytes:', len(first))
