// Loads the library's own reader and opens the databases of the page in it.
import createReader from './reader.mjs';

const bytesOf = (base64) => Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));

// Returns one object for each database, in order. reader_glue.cpp documents the results of its
// functions.
export async function openReaders(databases) {
  const module = await createReader();
  const call = (name, ...numbers) => {
    const text = module.ccall(name, 'number', numbers.map(() => 'number'), numbers);
    const value = JSON.parse(module.UTF8ToString(text));
    module._free(text);
    return value;
  };
  return databases.map((database) => {
    const bytes = bytesOf(database.content);
    const address = module._malloc(bytes.length);
    module.HEAPU8.set(bytes, address);
    const number = module._Open(address, bytes.length);
    if (number < 0) throw new Error(`${database.name} cannot be opened`);
    return {
      look: (lat, lon) => call('Look', number, lat, lon),
      entriesIn: (south, west, north, east) => call('EntriesIn', number, south, west, north, east),
      entry: (index) => call('Entry', number, index),
    };
  });
}
