// A real browser on a running connector-gateway's interactive docs: Debian's chromium,
// headless, driven by puppeteer-core (which never downloads a browser). It opens /docs,
// finds every operation, sends the example request of shop/ReserveItem through the page
// and reads the answer, then sends a request without "quantity" and reads the 400 text,
// and saves a screenshot. Prints one JSON object on stdout (the C++ test checks it);
// exits 1 on any failure, with the reason on stderr.
// Usage: node docs_in_browser.mjs <gateway URL> <screenshot file> [<browser>]
import puppeteer from "puppeteer-core";

const [base, screenshot, browserPath = "/usr/bin/chromium"] = process.argv.slice(2);
const timeout = 30000;

const browser = await puppeteer.launch({
  executablePath: browserPath,
  headless: true,
  // The sandbox needs a user namespace that containers and root rarely have.
  args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"],
  defaultViewport: { width: 1100, height: 800 },
});
const result = { requests: [], violations: [], consoleErrors: [] };
try {
  const page = await browser.newPage();
  page.setDefaultTimeout(timeout);
  // Every Content-Security-Policy violation, reported by the page itself.
  await page.evaluateOnNewDocument(() => {
    window.__violations = [];
    document.addEventListener("securitypolicyviolation", (event) => {
      window.__violations.push(`${event.violatedDirective} ${event.blockedURI}`);
    });
  });
  page.on("console", (message) => {
    if (message.type() === "error") result.consoleErrors.push(message.text());
  });
  page.on("request", (request) => {
    if (!request.url().startsWith("data:")) result.requests.push(request.url());
  });

  const answer = await page.goto(`${base}/docs`, { waitUntil: "networkidle0" });
  result.status = answer.status();
  result.policy = answer.headers()["content-security-policy"] ?? null;
  await page.waitForSelector(".opblock-summary-path");
  result.title = await page.$eval(".info .title", (element) => element.textContent);
  result.operations = await page.$$eval(".opblock-summary-path", (paths) =>
    paths.map((path) => path.getAttribute("data-path")));

  const block = async (path) => {
    const found = await page.$(`.opblock-summary-path[data-path="${path}"]`);
    if (!found) throw new Error(`no operation ${path} on the page`);
    return found.evaluateHandle((element) => element.closest(".opblock"));
  };
  const reserve = await block("/shop/ReserveItem");
  await (await reserve.$(".opblock-summary-control")).click();
  await reserve.waitForSelector("textarea.body-param__text");
  result.example = await reserve.$eval("textarea.body-param__text", (area) => area.value);

  // Sends what the body's text area holds; returns the live answer's status and body.
  const execute = async () => {
    const responded = page.waitForResponse(
        (response) => response.url() === `${base}/shop/ReserveItem` &&
            response.request().method() === "POST");
    await (await reserve.$("button.execute")).click();
    await responded;
    await reserve.waitForSelector(".live-responses-table tbody .response-col_status");
    // The table is rendered after the answer arrived: wait until it shows it.
    await page.waitForFunction(
        (element) => element.querySelector(".live-responses-table .response-col_description pre"),
        {}, reserve);
    const shown = await reserve.$eval(".live-responses-table", (table) => ({
      status: table.querySelector("tbody .response-col_status").textContent.trim(),
      body: table.querySelector(".response-col_description pre").textContent,
    }));
    const cleared = await reserve.$("button.btn-clear");
    return { shown, cleared };
  };

  const first = await execute();
  result.example200 = first.shown;
  // From the page's top to the end of the answer just shown.
  const bottom = await reserve.$eval(".live-responses-table",
      (table) => table.getBoundingClientRect().bottom + window.scrollY);
  await page.screenshot({ path: screenshot, clip: { x: 0, y: 0, width: 1100, height: bottom + 16 } });

  if (first.cleared) await first.cleared.click();
  await page.waitForFunction(
      (element) => !element.querySelector(".live-responses-table"), {}, reserve);
  const area = await reserve.$("textarea.body-param__text");
  await area.click();
  await page.keyboard.down("Control");
  await page.keyboard.press("KeyA");
  await page.keyboard.up("Control");
  await page.keyboard.press("Backspace");
  await area.type('{"type":"shop/ReserveItem","sku":"LAMP-01"}');
  result.badRequest = (await execute()).shown;

  result.violations = await page.evaluate(() => window.__violations);
  console.log(JSON.stringify(result));
} catch (error) {
  console.error(String(error.stack ?? error));
  console.log(JSON.stringify(result));
  process.exitCode = 1;
} finally {
  await browser.close();
}
