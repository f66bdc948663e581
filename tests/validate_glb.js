// Checks a glTF asset with the Khronos glTF validator and prints the counts
// of its report and every error and warning.
//   node validate_glb.js VALIDATOR_DIR FILE
// VALIDATOR_DIR holds node_modules/gltf-validator (an `npm install --prefix`).
// Exit code: 0 no errors or warnings, 1 some, 2 the validator could not run.
'use strict';
const fs = require('fs');
const path = require('path');

const [validatorDir, file] = process.argv.slice(2);
let validator;
try {
  validator = require(path.resolve(validatorDir, 'node_modules', 'gltf-validator'));
} catch (e) {
  console.log(`no gltf-validator in ${validatorDir}: ${e.message}`);
  process.exit(2);
}
validator.validateBytes(new Uint8Array(fs.readFileSync(file)), {uri: file, maxIssues: 0})
    .then((report) => {
      const issues = report.issues;
      console.log(`errors ${issues.numErrors} warnings ${issues.numWarnings} ` +
                  `infos ${issues.numInfos} hints ${issues.numHints}`);
      const kinds = ['error', 'warning', 'info', 'hint'];
      for (const m of issues.messages)
        console.log(`${kinds[m.severity]} ${m.code} ${m.pointer || ''}: ${m.message}`);
      process.exit(issues.numErrors + issues.numWarnings > 0 ? 1 : 0);
    })
    .catch((e) => {
      console.log(`validation failed: ${e}`);
      process.exit(2);
    });
