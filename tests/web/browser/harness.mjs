// Starts what the browser tests and the benchmark need: a temporary container and media
// library, vexo-phone and vexo-watch on port 0, and Debian's Chromium under playwright-core.
// Whatever is missing is a Skip (exit 77 with one line), never a failure.
import { spawn, spawnSync } from 'node:child_process';
import { existsSync, mkdtempSync, mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export const kSkipCode = 77;

export class Skip extends Error {}

// --name value pairs into an object.
export function parseArgs(argv) {
  const options = {};
  for (let i = 0; i < argv.length; i++) {
    const arg = argv[i];
    if (!arg.startsWith('--')) continue;
    const key = arg.slice(2);
    const next = argv[i + 1];
    if (next === undefined || next.startsWith('--')) options[key] = true;
    else options[key] = argv[++i];
  }
  return options;
}

export const kChromiumFlags = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

export function chromiumPath() {
  return process.env.VEXO_CHROMIUM ?? '/usr/bin/chromium';
}

export async function launchBrowser() {
  let playwright;
  try {
    playwright = await import('playwright-core');
  } catch {
    throw new Skip('playwright-core is not installed (npm ci in tests/web; ./test does it)');
  }
  const executablePath = chromiumPath();
  if (!existsSync(executablePath)) throw new Skip(`no Chromium at ${executablePath} (apt-get install chromium; ./test does it)`);
  return playwright.chromium.launch({ executablePath, headless: true, args: kChromiumFlags });
}

function requireProgram(path, name) {
  if (!path || !existsSync(path)) throw new Skip(`${name} is not built (${path ?? 'no path given'})`);
}

// A child process whose output is kept for the failure report.
class Child {
  constructor(name, command, args, env) {
    this.name = name;
    this.output = '';
    this.process = spawn(command, args, { env, stdio: ['ignore', 'pipe', 'pipe'] });
    this.exited = new Promise((resolve) => this.process.on('exit', (code, signal) => resolve({ code, signal })));
    this.exitStatus = null;
    this.exited.then((status) => { this.exitStatus = status; });
    for (const stream of [this.process.stdout, this.process.stderr]) {
      stream.setEncoding('utf8');
      stream.on('data', (text) => {
        this.output += text;
        if (this.output.length > 200_000) this.output = this.output.slice(-100_000);
      });
    }
  }

  // Resolves with the first match of `pattern` in the output; rejects when the process ends
  // first or after `limit` ms (a start that hangs is a failure with its output, not a hang).
  waitFor(pattern, limit = 30000) {
    return new Promise((resolve, reject) => {
      const check = () => {
        const match = pattern.exec(this.output);
        if (match) {
          cleanup();
          resolve(match);
        }
      };
      const onExit = () => {
        cleanup();
        reject(new Error(`${this.name} ended before it was ready:\n${this.output}`));
      };
      const timer = setTimeout(() => {
        cleanup();
        reject(new Error(`${this.name} did not get ready:\n${this.output}`));
      }, limit);
      const cleanup = () => {
        clearTimeout(timer);
        this.process.stdout.off('data', check);
        this.process.stderr.off('data', check);
        this.process.off('exit', onExit);
      };
      this.process.stdout.on('data', check);
      this.process.stderr.on('data', check);
      this.process.on('exit', onExit);
      check();
    });
  }

  signal(name) {
    if (this.exitStatus === null) this.process.kill(name);
  }

  async stop() {
    if (this.exitStatus !== null) return this.exitStatus;
    this.process.kill('SIGCONT');
    this.process.kill('SIGTERM');
    const timer = setTimeout(() => this.process.kill('SIGKILL'), 5000);
    const status = await this.exited;
    clearTimeout(timer);
    return status;
  }
}

// Starts vexo-watch (with options.watchArguments after its own), and vexo-phone on a
// demonstration library beside it when they are built, in a temporary folder. vexo-watch is required; without the phone or the library
// the scenarios that need them skip. Returns {url, watch, phone | null, missing: {what:
// why}, root, stop()}.
export async function startPrograms(options) {
  requireProgram(options.watch, 'vexo-watch');
  const root = mkdtempSync(join(tmpdir(), 'vexo-face-'));
  const music = join(root, 'music');
  const env = {
    ...process.env,
    VEXO_CONTAINER_ROOT: join(root, 'container'),
    VEXO_MEDIA_LIBRARY: join(root, 'media-library.sqlite'),
    XDG_CONFIG_HOME: join(root, 'config'),
    XDG_DATA_HOME: join(root, 'data'),
    XDG_RUNTIME_DIR: join(root, 'runtime'),
    VEXO_LOG: process.env.VEXO_LOG ?? 'warning',
  };
  for (const dir of [music, env.XDG_CONFIG_HOME, env.XDG_DATA_HOME, env.XDG_RUNTIME_DIR]) mkdirSync(dir, { recursive: true, mode: 0o700 });
  const children = [];
  const missing = {};
  const stop = async () => {
    await Promise.all(children.map((child) => child.stop()));
    if (!process.env.VEXO_KEEP_TEMP) rmSync(root, { recursive: true, force: true });
  };
  try {
    let library = false;
    if (!options.library || !existsSync(options.library)) {
      missing.library = `vexo-library is not built (${options.library ?? 'no path given'})`;
    } else {
      const demo = spawnSync(options.library, ['demo', music], { env, encoding: 'utf8', timeout: 120000 });
      if (demo.status === 0) library = true;
      else missing.library = `vexo-library demo did not make a library (exit ${demo.status}): ${(demo.stderr || demo.stdout).trim().split('\n')[0]}`;
    }
    let phone = null;
    if (!options.phone || !existsSync(options.phone)) {
      missing.phone = `vexo-phone is not built (${options.phone ?? 'no path given'})`;
    } else {
      phone = new Child('vexo-phone', options.phone, library ? ['--music', music] : [], env);
      children.push(phone);
    }
    const watch = new Child('vexo-watch', options.watch,
      ['--port', '0', '--web-root', options['web-root'], ...(options.watchArguments ?? [])], env);
    children.push(watch);
    const match = await watch.waitFor(/Watch face: (http:\/\/127\.0\.0\.1:\d+\/)/);
    if (phone && phone.exitStatus !== null) {
      missing.phone = `vexo-phone ended at once: ${phone.output.trim().split('\n').slice(-1)[0]}`;
      phone = null;
    }
    // The phone's "load a song on deck n" notification, sent as the phone sends it: one
    // datagram to the watch's notification socket in the shared container.
    const notifyLoad = async (n) => {
      if (!options.phone || !existsSync(options.phone)) throw new Skip(missing.phone ?? 'vexo-phone is not built');
      const sent = spawnSync(options.phone, ['notify', 'load', String(n)], { env, encoding: 'utf8', timeout: 20000 });
      if (sent.status !== 0 || !/^sent /m.test(sent.stdout)) {
        const why = sent.error ? String(sent.error) : sent.signal ? `signal ${sent.signal}` : `exit ${sent.status}`;
        throw new Error(`vexo-phone notify load ${n} did not reach the watch (${why}): ${(sent.stdout + sent.stderr).trim()}`);
      }
    };
    const need = (...what) => {
      for (const thing of what) if (missing[thing]) throw new Skip(missing[thing]);
    };
    return { url: match[1], phone, watch, missing, need, root, env, stop, notifyLoad };
  } catch (error) {
    await stop();
    throw error;
  }
}

// Runs `main` and exits with its verdict: 0, 1 on failure, 77 on Skip, with one line.
export function run(name, main) {
  main().then((failed) => {
    process.exit(failed ? 1 : 0);
  }, (error) => {
    if (error instanceof Skip) {
      console.log(`${name}: skipped: ${error.message}`);
      process.exit(kSkipCode);
    }
    console.error(`${name}: ${error.stack ?? error}`);
    process.exit(1);
  });
}

export function writeText(path, text) {
  writeFileSync(path, text);
}
