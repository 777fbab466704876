// Puts style and program into the page's text, and the licences of the libraries that the program
// holds. Usage: node join.mjs DIRECTORY OUTPUT
import { readFileSync, writeFileSync } from 'node:fs';

const [directory, output] = process.argv.slice(2);
const read = (name) => readFileSync(`${directory}/${name}`, 'utf8').trim();
// What would end a script's element must not stand in one.
const program = read('bundle.js').replaceAll('</script', '<\\/script');
const bundled = Object.keys(JSON.parse(read('bundle.json')).inputs).sort();
const packages = new Set(bundled.map((path) => path.match(/^node_modules\/([^/]+)/)?.[1]).filter(Boolean));
const licences = [...packages].map((name) => `${name}\n\n${read(`node_modules/${name}/LICENSE`)}`);

writeFileSync(output, read('index.html')
    .replace('<head>', () => `<head>\n<!--\n${licences.join('\n\n')}\n-->`)
    .replace('/* style.css */', () => read('style.css'))
    .replace('/* main.js */', () => program) + '\n');
