import tez
tez.new()
tez.save()  # a new document has no name yet
