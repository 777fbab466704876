// Puts style and program into the page's text, and the licences of the libraries that the program
// holds, and the digest of its sources. Usage: node join.mjs DIRECTORY OUTPUT DIGEST
import { readFileSync, writeFileSync } from 'node:fs';

const [directory, output, digest] = process.argv.slice(2);
const read = (name) => readFileSync(`${directory}/${name}`, 'utf8').trim();
// What would end a script's element must not stand in one.
const program = read('bundle.js').replaceAll('</script', '<\\/script');
const bundled = Object.keys(JSON.parse(read('bundle.json')).inputs).sort();
const packages = new Set(bundled.map((path) => path.match(/^node_modules\/([^/]+)/)?.[1]).filter(Boolean));
const licences = [...packages].map((name) => `${name}\n\n${read(`node_modules/${name}/LICENSE`)}`);

writeFileSync(output, read('index.html')
    .replace('<title>', () => `<!--\nOf sources with the digest ${digest}.\n\n${licences.join('\n\n')}\n-->\n<title>`)
    .replace('/* style.css */', () => read('style.css'))
    .replace('/* main.js */', () => program) + '\n');
