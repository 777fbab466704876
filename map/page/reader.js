// The library's own reader, and the databases of the page open in it.
import createReader from './reader.mjs';

const bytesOf = (base64) => Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));

// One object for each database, in their order; see reader_glue.cpp for what its functions give.
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
    const place = module._malloc(bytes.length);
    module.HEAPU8.set(bytes, place);
    const number = module._Open(place, bytes.length);
    if (number < 0) throw new Error(`the reader refuses ${database.name}`);
    return {
      look: (lat, lon) => call('Look', number, lat, lon),
      entriesIn: (south, west, north, east) => call('EntriesIn', number, south, west, north, east),
      entry: (place) => call('Entry', number, place),
    };
  });
}
